#include "connection/strict/requestBody.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "http/httpBody_iter.h"
#include "http/strictUpload.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "policy/attachFile.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr size_t forwardPiece = 65536;
constexpr size_t uploadWindow = 65536;
constexpr size_t uploadOverlap = 16384 + 32; /* of two windows: the longest field that is looked at, and its name */
constexpr uint64_t greatestChecked = 256ULL << 20; /* what is collected to be looked through */

/* Reads the next piece of the request's body: as much as there is room for, or what has arrived. False when the client
   stalls or breaks off. */
bool readRequestBody(const Connection &connection, char *piece, size_t room, uint64_t &remaining, size_t &count,
                     bool full) {
  unsigned length = static_cast<unsigned>(std::min<uint64_t>(room, remaining));
  const int least = full ? static_cast<int>(length) : 1;
  const unsigned char status = getHTTPBody(connection.ends.client, piece, &length, clientTimeoutSeconds, least);
  count = length;
  remaining -= length;
  return status <= 1 && length > 0;
}

/* Into the spool, looked through in windows that overlap. */
Upload lookThrough(const Connection &connection, const Cycle &cycle, FILE *spool) {
  const Text window(static_cast<char *>(std::calloc(uploadWindow + 1, 1)));
  UploadLook look;
  beginLook(look, reqheader.first);
  if (!window || !inviteBody(connection, cycle)) return Upload::failed;
  size_t held = 0;
  for (uint64_t remaining = cycle.bodyLength; remaining > 0;) {
    size_t count = 0;
    if (!readRequestBody(connection, window.get() + held, uploadWindow - held, remaining, count, true))
      return Upload::failed;
    if (fwrite(window.get() + held, 1, count, spool) != count) return Upload::failed;
    const size_t filled = held + count;
    held = std::min(filled, uploadOverlap);
    const Text tail(static_cast<char *>(std::malloc(held)));
    if (!tail) return Upload::failed;
    std::memcpy(tail.get(), window.get() + filled - held, held); /* the check empties what it finds */
    window.get()[filled] = '\0';
    const bool found = showsUpload(look, {window.get() + filled - count, count}) ||
                       blockAttachment(static_cast<int>(filled), window.get()) > 0;
    if (found) return Upload::found;
    std::memcpy(window.get(), tail.get(), held);
  }
  if (endsUnread(look)) return Upload::found;
  std::rewind(spool);
  return std::ferror(spool) == 0 ? Upload::clean : Upload::failed;
}

}  // namespace

bool inviteBody(const Connection &connection, const Cycle &cycle) {
  constexpr char invitation[] = "HTTP/1.1 100 Continue\r\n\r\n";
  if (!cycle.expectsContinue) return true;
  return sendHTTPBody(connection.ends.client, invitation, sizeof invitation - 1, clientTimeoutSeconds) >= 0;
}

Upload spoolUpload(const Connection &connection, Cycle &cycle) {
  if (cycle.bodyLength > greatestChecked) return Upload::tooLarge;
  cycle.requestSpool.reset(std::tmpfile());
  return cycle.requestSpool ? lookThrough(connection, cycle, cycle.requestSpool.get()) : Upload::failed;
}

/* An upstream may answer before it has all of the body. While the client goes on and the upstream takes it the body is
   sent to its end all the same; else the answer is read, and ends the connection. */
Next forwardBody(Connection &connection, Cycle &cycle) {
  FILE *const spool = cycle.requestSpool.get();
  if (cycle.bodyLength == 0) return Next::step;
  dprintf(2, "It is a  request requiring posting of data\n");
  const Text piece(static_cast<char *>(std::malloc(forwardPiece)));
  if (!piece || (spool == nullptr && !inviteBody(connection, cycle))) return endCall(connection, callFailed);
  for (uint64_t remaining = cycle.bodyLength; remaining > 0;) {
    size_t count = 0;
    if (spool != nullptr) {
      count = std::fread(piece.get(), 1, std::min<uint64_t>(forwardPiece, remaining), spool);
      remaining -= count;
      if (count == 0) return endCall(connection, callFailed);
    } else if (answersFirst(connection.ends.upstream, connection.ends.client, clientTimeoutSeconds)) {
      cycle.bodyUnsent = true;
      break;
    } else if (!readRequestBody(connection, piece.get(), forwardPiece, remaining, count, false)) {
      return endCall(connection, callFailed);
    }
    if (sendHTTPBody(connection.ends.upstream, piece.get(), static_cast<int>(count), PROXY_TIMEOUT) >= 0) continue;
    cycle.bodyUnsent = true;
    break;
  }
  cycle.requestSpool.reset(); /* nothing of it is needed while the answer is waited for */
  return Next::step;
}

}  // namespace netsift
