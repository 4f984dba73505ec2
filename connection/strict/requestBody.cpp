#include "connection/strict/requestBody.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "connection/refuse.h"
#include "connection/strict/steps.h"
#include "http/httpBody_iter.h"
#include "http/strictChunk.h"
#include "http/strictUpload.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "policy/attachFile.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int invitationMilliseconds = 1000; /* what clients wait themselves, where they do not wait for ever */
constexpr size_t forwardPiece = 65536;
constexpr size_t uploadWindow = 65536;
constexpr size_t uploadOverlap = 16384 + 32; /* of two windows: the longest field that is looked at, and its name */
constexpr uint64_t greatestCollected = 256ULL << 20; /* of a body, at most */

constexpr int64_t slowestRate = 500; /* bytes a second */

/* How long a client has been waited for, and what it sent. */
struct Pace {
  std::chrono::steady_clock::duration waited{};
  uint64_t taken = 0;
};

/* A byte now and then must not hold a place for ever. What the upstream takes its time for is not counted. */
std::chrono::steady_clock::duration timeLeft(const Pace &pace) {
  return std::chrono::seconds(RequestBodySeconds + static_cast<int64_t>(pace.taken) / slowestRate) - pace.waited;
}

/* Adds to it the time that passes. */
struct Waiting {
  Pace &pace;
  const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  explicit Waiting(Pace &counted) : pace(counted) {}
  Waiting(const Waiting &) = delete;
  Waiting &operator=(const Waiting &) = delete;
  ~Waiting() { pace.waited += std::chrono::steady_clock::now() - begin; }
};

BodySource bodyOf(const Cycle &cycle) {
  BodySource source;
  source.kind = cycle.bodyIsChunked ? BodyKind::chunked : BodyKind::length;
  source.remaining = cycle.bodyLength;
  source.exact = true;
  return source;
}

BodyRead readPiece(const Connection &connection, BodySource &source, char *piece, size_t room, size_t &count) {
  return readBody(connection.ends.client, source, piece, room, count, clientTimeoutSeconds * 1000);
}

BodyRead readPaced(const Connection &connection, BodySource &source, Pace &pace, char *piece, size_t room,
                   size_t &count) {
  const bool limited = RequestBodySeconds > 0;
  if (limited) source.deadline = std::chrono::steady_clock::now() + timeLeft(pace);
  const BodyRead read = [&] {
    const Waiting waiting(pace);
    return readPiece(connection, source, piece, room, count);
  }();
  pace.taken += count;
  return read == BodyRead::piece && limited && timeLeft(pace).count() < 0 ? BodyRead::timedOut : read;
}

/* As much as there is room for, or all that comes. False when the client stalls or breaks off, or sends no chunks. */
bool fill(const Connection &connection, BodySource &source, Pace &pace, char *window, size_t room, size_t &filled) {
  for (filled = 0; filled < room;) {
    size_t count = 0;
    const BodyRead read = readPaced(connection, source, pace, window + filled, room - filled, count);
    if (read == BodyRead::end) return true;
    if (read != BodyRead::piece) return false;
    filled += count;
  }
  return true;
}

/* Looks through a window that ends in `count` bytes that are new. The check empties what it finds: what is kept stays. */
bool holdsUpload(UploadLook &look, char *window, size_t filled, size_t count, Text &kept, size_t keep) {
  std::memcpy(kept.get(), window + filled - keep, keep);
  window[filled] = '\0';
  const bool found =
      showsUpload(look, {window + filled - count, count}) || blockAttachment(static_cast<int>(filled), window) > 0;
  std::memcpy(window, kept.get(), keep);
  return found;
}

/* Into the spool, looked through in windows that overlap. */
Collected collect(const Connection &connection, BodySource &source, FILE *spool, uint64_t &length, bool looksThrough) {
  const Text window(static_cast<char *>(std::calloc(uploadWindow + 1, 1)));
  Text tail(static_cast<char *>(std::malloc(uploadOverlap)));
  if (!window || !tail) return Collected::failed;
  UploadLook look;
  Pace pace;
  beginLook(look, reqheader.first);
  size_t held = 0;
  for (length = 0;;) {
    size_t count = 0;
    if (!fill(connection, source, pace, window.get() + held, uploadWindow - held, count)) {
      return source.broken ? Collected::noChunks : Collected::failed;
    }
    if (count == 0) break;
    length += count;
    if (length > greatestCollected) return Collected::tooLarge;
    if (fwrite(window.get() + held, 1, count, spool) != count) return Collected::failed;
    if (!looksThrough) continue;
    const size_t filled = held + count;
    held = std::min(filled, uploadOverlap);
    if (holdsUpload(look, window.get(), filled, count, tail, held)) return Collected::upload;
  }
  if (looksThrough && endsUnread(look)) return Collected::upload;
  std::rewind(spool);
  return std::ferror(spool) == 0 ? Collected::all : Collected::failed;
}

/* The next piece to go upstream. */
BodyRead nextPiece(const Connection &connection, const Cycle &cycle, BodySource &source, Pace &pace, char *piece,
                   size_t &count) {
  FILE *const spool = cycle.requestSpool.get();
  if (spool == nullptr) return readPaced(connection, source, pace, piece, forwardPiece, count);
  count = std::fread(piece, 1, forwardPiece, spool);
  source.ended = count == 0 && std::ferror(spool) == 0;
  return source.ended ? BodyRead::end : count > 0 ? BodyRead::piece : BodyRead::broken;
}

bool sendUpstream(const Connection &connection, std::string_view bytes) {
  return sendHTTPBody(connection.ends.upstream, bytes.data(), static_cast<int>(bytes.size()), PROXY_TIMEOUT) >= 0;
}

bool sendPiece(const Connection &connection, const Cycle &cycle, std::string_view piece) {
  return cycle.bodyIsChunked ? sendUpstream(connection, asChunk(piece)) : sendUpstream(connection, piece);
}

/* Listens to both while the body goes on: passes on what is interim, and asks the client for its body in the upstream's
   place when that says nothing about one that is held back. False when the body is not to be sent: an answer is there. */
bool isWanted(Connection &connection, Cycle &cycle, Pace &pace) {
  const Waiting waiting(pace);
  const Ends &ends = connection.ends;
  for (;;) {
    const Word word = awaitWord(ends.upstream, ends.client,
                                cycle.expectsContinue ? invitationMilliseconds : clientTimeoutSeconds * 1000);
    if (word == Word::answer) return false;
    if (word == Word::none && cycle.expectsContinue && !inviteBody(connection, cycle)) return false;
    if (word != Word::interim) break;
    if (!relayInterim(connection, cycle)) return false;
    if (cycle.responseCode == 100) cycle.expectsContinue = false;
  }
  cycle.expectsContinue = false;
  return true;
}

}  // namespace

bool inviteBody(const Connection &connection, const Cycle &cycle) {
  constexpr char invitation[] = "HTTP/1.1 100 Continue\r\n\r\n";
  if (!cycle.expectsContinue) return true;
  return sendHTTPBody(connection.ends.client, invitation, sizeof invitation - 1, clientTimeoutSeconds) >= 0;
}

Collected collectBody(const Connection &connection, Cycle &cycle, bool looksThrough) {
  if (cycle.bodyLength > greatestCollected) return Collected::tooLarge;
  cycle.requestSpool.reset(std::tmpfile());
  if (!cycle.requestSpool || !inviteBody(connection, cycle)) return Collected::failed;
  BodySource source = bodyOf(cycle);
  const Collected collected = collect(connection, source, cycle.requestSpool.get(), cycle.bodyLength, looksThrough);
  cycle.requestTrailers = source.chunks.trailerText;
  return collected;
}

/* An upstream may answer before it has all of the body. While the client goes on and the upstream takes it the body is
   sent to its end all the same; else the answer is read, and ends the connection. */
Next forwardBody(Connection &connection, Cycle &cycle) {
  if (!hasBody(cycle)) return Next::step;
  dprintf(2, "It is a  request requiring posting of data\n");
  const bool isCollected = cycle.requestSpool != nullptr;
  const Text piece(static_cast<char *>(std::malloc(forwardPiece)));
  if (!piece) return endCall(connection, callFailed);
  cycle.bodyWasSent = true;
  Pace pace;
  for (BodySource source = bodyOf(cycle); !cycle.bodyUnsent;) {
    const bool mayWait = !isCollected && !source.ended && !source.broken;
    if (mayWait && !isWanted(connection, cycle, pace)) {
      cycle.bodyUnsent = true;
      break;
    }
    size_t count = 0;
    const BodyRead read = nextPiece(connection, cycle, source, pace, piece.get(), count);
    if (read == BodyRead::end) {
      if (!isCollected) cycle.requestTrailers = source.chunks.trailerText;
      cycle.bodyUnsent = cycle.bodyIsChunked && !sendUpstream(connection, endOfChunks(cycle.requestTrailers));
      break;
    }
    if (source.broken && count == 0) return refuseWithError(connection, cycle, 400, noChunks);
    if (read != BodyRead::piece) return endCall(connection, callFailed);
    cycle.bodyUnsent = !sendPiece(connection, cycle, {piece.get(), count});
  }
  cycle.requestSpool.reset(); /* nothing of it is needed while the answer is waited for */
  return Next::step;
}

}  // namespace netsift
