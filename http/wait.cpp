#include "http/wait.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

/* Whether what poll tells of the client is that it has left. */
bool isEnd(const pollfd &client) {
  if ((client.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0) return false;
  const int callersErrno = errno;
  char next;
  const ssize_t pending = recv(client.fd, &next, 1, MSG_PEEK | MSG_DONTWAIT);
  const bool isSocket = pending >= 0 || errno != ENOTSOCK;
  errno = callersErrno;
  return isSocket && pending <= 0;
}

Wait waitFor(int fd, short events, int64_t milliseconds, int client) {
  constexpr int64_t longest = INT64_MAX / 2'000'000; /* as nanoseconds, and added to the clock's */
  const nanoseconds limit = std::chrono::milliseconds(std::clamp<int64_t>(milliseconds, -1, longest));
  const Clock::time_point start = Clock::now();
  pollfd both[] = {{fd, events, 0}, {client, POLLRDHUP, 0}};
  std::span<pollfd> waited(both, client < 0 ? 1 : 2);
  for (nanoseconds left = limit;;) {
    const int ready = waitOnce(waited, left);
    if (ready == 0) return Wait::timedOut;
    if (ready < 0 && errno != EINTR) return Wait::failed;
    if (ready > 0) {
      if (both[0].revents != 0) return Wait::ready;
      if (isEnd(both[1])) return Wait::clientLeft;
      waited = waited.first(1); /* what it sent before it closed stays unread for longer than this wait */
    }
    if (limit >= nanoseconds::zero()) left = std::max(nanoseconds::zero(), start + limit - Clock::now());
  }
}

}  // namespace

int waitOnce(std::span<pollfd> waited, nanoseconds limit) {
  constexpr int64_t second = 1'000'000'000;
  const timespec time{limit.count() / second, limit.count() % second};
  const bool allNumbers = std::none_of(waited.begin(), waited.end(), [](const pollfd &one) { return one.fd < 0; });
  if (allNumbers) { /* poll passes a negative one over */
    const int ready = ppoll(waited.data(), waited.size(), limit < nanoseconds::zero() ? nullptr : &time, nullptr);
    const auto isClosed = [](const pollfd &one) { return (one.revents & POLLNVAL) != 0; };
    if (ready <= 0 || std::none_of(waited.begin(), waited.end(), isClosed)) return ready;
  }
  errno = EBADF;
  return -1;
}

int waitOnce(int fd, short events, nanoseconds limit) {
  pollfd waited{fd, events, 0};
  return waitOnce({&waited, 1}, limit);
}

Wait waitReadable(int fd, int64_t milliseconds, int client) { return waitFor(fd, POLLIN, milliseconds, client); }
Wait waitWritable(int fd, int64_t milliseconds, int client) { return waitFor(fd, POLLOUT, milliseconds, client); }

bool hasLeft(int client) {
  pollfd watched{client, POLLRDHUP, 0};
  return poll(&watched, 1, 0) > 0 && isEnd(watched);
}

}  // namespace netsift
