#include "http/strictRelay.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "http/wait.h"
#include "log/requestRecord.h"

namespace netsift {
namespace {

constexpr size_t pipeSize = 256 * 1024; /* asked for; an unprivileged process may be given less */

struct Pipe {
  int ends[2] = {-1, -1}; /* what is written to the second is read from the first */

  Pipe() {
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) fcntl(ends[1], F_SETPIPE_SZ, pipeSize);
  }
  ~Pipe() {
    for (const int end : ends) {
      if (end >= 0) close(end);
    }
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;
};

/* splice(2) waits on a socket unless that itself does not. */
class NonBlocking {
 public:
  explicit NonBlocking(int fd) : fd_(fd), flags_(fcntl(fd, F_GETFL)) { fcntl(fd_, F_SETFL, flags_ | O_NONBLOCK); }
  ~NonBlocking() { fcntl(fd_, F_SETFL, flags_); }
  NonBlocking(const NonBlocking &) = delete;
  NonBlocking &operator=(const NonBlocking &) = delete;

 private:
  int fd_, flags_;
};

/* Keeps a write to a peer that has left from ending the process: splice(2) knows no MSG_NOSIGNAL. */
class NoBrokenPipe {
 public:
  NoBrokenPipe() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~NoBrokenPipe() {
    constexpr timespec now{};
    if (!wasPending_) sigtimedwait(&pipe_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  NoBrokenPipe(const NoBrokenPipe &) = delete;
  NoBrokenPipe &operator=(const NoBrokenPipe &) = delete;

 private:
  sigset_t pipe_, before_;
  bool wasPending_;
};

/* As splice(2), with -1 and EAGAIN where it would wait. */
ssize_t move(int from, int to, uint64_t count, unsigned flags) {
  ssize_t moved;
  do {
    moved = splice(from, nullptr, to, nullptr, std::min<uint64_t>(count, pipeSize), SPLICE_F_NONBLOCK | flags);
  } while (moved < 0 && errno == EINTR);
  return moved;
}

/* Empties the pipe. False when the client is gone or takes nothing for so long. */
bool drain(const Pipe &pipe, int client, uint64_t held, bool isLast, int clientSeconds, uint64_t &sent) {
  while (held > 0) {
    const ssize_t moved = move(pipe.ends[0], client, held, isLast ? 0 : SPLICE_F_MORE);
    const bool isFull = moved < 0 && errno == EAGAIN;
    if (moved == 0 || (moved < 0 && !isFull)) return false;
    if (isFull && waitWritable(client, int64_t{clientSeconds} * 1000) != Wait::ready) return false;
    if (isFull) continue;
    noteSent(client, moved);
    held -= static_cast<uint64_t>(moved);
    sent += static_cast<uint64_t>(moved);
  }
  return true;
}

}  // namespace

BodyRead relayBody(int upstream, BodySource &source, int client, int waitMilliseconds, int clientSeconds,
                   uint64_t &sent) {
  const Pipe pipe;
  const NonBlocking from(upstream), to(client);
  const NoBrokenPipe quiet;
  for (bool begun = false; source.remaining > 0;) {
    const ssize_t moved = move(upstream, pipe.ends[1], source.remaining, 0);
    if (moved < 0 && errno == EAGAIN) {
      const BodyRead awaited = awaitBody(upstream, waitMilliseconds, client);
      if (awaited != BodyRead::piece) return awaited;
      continue;
    }
    if (moved < 0 && !begun && (errno == EINVAL || errno == EBADF)) return BodyRead::piece;
    if (moved <= 0) return BodyRead::broken;
    begun = true;
    source.remaining -= static_cast<uint64_t>(moved);
    const bool isLast = source.remaining == 0;
    if (!drain(pipe, client, static_cast<uint64_t>(moved), isLast, clientSeconds, sent)) return BodyRead::clientLeft;
  }
  source.ended = true;
  return BodyRead::end;
}

}  // namespace netsift
