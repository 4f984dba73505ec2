#include "scan/engine.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "http/wait.h"
#include "log/debugLog.h"
#include "scan/virusScan.h"
#include "state/connection.h"
#include "state/strict.h"
#include "util/unixSocket.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int longestLine = 2047; /* of a reply, as readline counts */

/* Milliseconds, rounded up so that the last one is not spent in waits of none; -1 without limit. */
int64_t timeLeft(const Dialogue &dialogue) {
  if (!dialogue.end) return -1;
  return std::max<int64_t>(0, std::chrono::ceil<milliseconds>(*dialogue.end - Clock::now()).count());
}

/* Nobody is served at load, where the number would be that of standard input. */
int watchedClient() { return clientsock > 0 ? clientsock : nobody; }

/* Whether the engine has said something, within the dialogue's time and `most` milliseconds (negative: no such). */
bool hasSpoken(const Dialogue &dialogue, int64_t most = -1) {
  if (!dialogue.strict) return true;
  const int64_t left = timeLeft(dialogue);
  const int64_t limit = left < 0 || most < 0 ? std::max(left, most) : std::min(left, most);
  /* An engine that never pauses is ready without end. */
  const Wait wait = left == 0 ? Wait::timedOut : waitReadable(dialogue.fd, limit, watchedClient());
  if (wait == Wait::timedOut) dprintf(1, "AV engine gave no answer in time\n");
  if (wait == Wait::clientLeft) dprintf(4, "the client left while the AV engine was asked\n");
  return wait == Wait::ready;
}

/* readline, with `read` for read(2) of one byte. A read that fails for another reason than an interruption ends it. */
template <typename Read>
int readLineBy(char *buffer, int maximum, Read read) {
  int stored = 0;
  ssize_t got = 1;
  bool lineEnd = false;
  while (stored + 1 < maximum && !lineEnd) {
    got = read(&buffer[stored]);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    lineEnd = buffer[stored++] == '\n';
  }
  if (maximum > 0) buffer[stored] = '\0';
  if (got < 0) return -1;
  if (got == 0 && stored == 0) return 0;
  return lineEnd ? stored : stored + 1;
}

/* An engine whose queue is full makes a connect wait, in slices so that the client is looked after meanwhile. */
bool connectInTime(const Dialogue &dialogue, const char *path) {
  constexpr int64_t longestSlice = 200;
  for (;;) {
    const int64_t left = timeLeft(dialogue);
    const int64_t slice = left < 0 ? longestSlice : std::min(left, longestSlice);
    const timeval limit{0, slice * 1000};
    setsockopt(dialogue.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (slice > 0 && connectUnixSocket(dialogue.fd, path) == 0) return true;
    const bool waits = slice > 0 && (errno == EAGAIN || errno == EINTR);
    if (!waits || hasLeft(watchedClient())) return false;
  }
}

}  // namespace

Dialogue startDialogue() {
  Dialogue dialogue{unixSocket(), strictHttp(), {}};
  if (dialogue.strict && EngineTimeout > 0) dialogue.end = Clock::now() + std::chrono::seconds(EngineTimeout);
  return dialogue;
}

bool reachEngine(const Dialogue &dialogue, const char *path) {
  return dialogue.strict ? connectInTime(dialogue, path) : connectUnixSocket(dialogue.fd, path) == 0;
}

bool waitForGreeting(const Dialogue &dialogue, int32_t limitSeconds) {
  if (limitSeconds < 0) return false;
  if (dialogue.strict) return hasSpoken(dialogue, int64_t{limitSeconds} * 1000);
  return waitOnce(dialogue.fd, POLLIN, std::chrono::seconds(limitSeconds)) > 0;
}

bool sayOnce(const Dialogue &dialogue, std::string_view text) {
  return send(dialogue.fd, text.data(), text.size(), MSG_NOSIGNAL) > 0;
}

ssize_t hearOnce(const Dialogue &dialogue, char *buffer, size_t room) {
  if (hasSpoken(dialogue)) return read(dialogue.fd, buffer, room);
  errno = ETIMEDOUT; /* none that is tried again */
  return -1;
}

int hearLine(const Dialogue &dialogue, char *line, int maximum) {
  return readLineBy(line, maximum, [&](char *byte) { return hearOnce(dialogue, byte, 1); });
}

void sayGoodbye(const Dialogue &dialogue, std::string_view goodbye) {
  char lastWord[longestLine];
  sayOnce(dialogue, goodbye);
  if (!dialogue.strict) hearLine(dialogue, lastWord, sizeof lastWord);
}

void concludeDialogue(const Dialogue &dialogue, bool complete) {
  if (dialogue.fd >= 0 && (complete || dialogue.strict)) close(dialogue.fd);
}

}  // namespace netsift

int readline(int fd, char *buffer, int maximum) {
  return netsift::readLineBy(buffer, maximum, [fd](char *byte) { return read(fd, byte, 1); });
}
