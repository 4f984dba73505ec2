#include "http/wait.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr nanoseconds patience = std::chrono::milliseconds(halfClosedMilliseconds);

enum class ClientEnd { open, ended, reset };

/* What poll tells of the client: both ways are closed, or it sends no more. */
ClientEnd endOf(const pollfd &client) {
  if ((client.revents & (POLLHUP | POLLERR)) != 0) return ClientEnd::reset;
  return (client.revents & POLLRDHUP) != 0 ? ClientEnd::ended : ClientEnd::open;
}

ClientEnd endOf(int client) {
  pollfd watched{client, POLLRDHUP, 0};
  return poll(&watched, 1, 0) > 0 ? endOf(watched) : ClientEnd::open;
}

Wait waitFor(int fd, short events, int64_t milliseconds, int client) {
  constexpr int64_t longest = INT64_MAX / 2'000'000; /* as nanoseconds, and added to the clock's */
  const Clock::time_point start = Clock::now();
  nanoseconds limit = std::chrono::milliseconds(std::clamp<int64_t>(milliseconds, -1, longest));
  Wait late = Wait::timedOut;
  pollfd both[] = {{fd, events, 0}, {client, POLLRDHUP, 0}};
  const std::span<pollfd> waited(both, client < 0 ? 1 : 2);
  for (nanoseconds left = limit;;) {
    const int ready = waitOnce(waited, left);
    if (ready == 0) return late;
    if (ready < 0 && errno != EINTR) return Wait::failed;
    if (ready > 0) {
      if (both[0].revents != 0) return Wait::ready;
      if (endOf(both[1]) == ClientEnd::reset) return Wait::clientLeft;
      both[1].events = 0; /* from here on a reset alone is told */
      const nanoseconds atMost = Clock::now() - start + patience;
      if (limit < nanoseconds::zero() || atMost < limit) {
        limit = atMost;
        late = Wait::clientLeft;
      }
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

bool hasLeft(int client) { return client >= 0 && endOf(client) == ClientEnd::reset; }

bool hasLeft(ClientWatch &watch) {
  const ClientEnd end = watch.client < 0 ? ClientEnd::open : endOf(watch.client);
  if (end == ClientEnd::ended && watch.endSeen == Clock::time_point()) watch.endSeen = Clock::now();
  return end == ClientEnd::reset || (end == ClientEnd::ended && Clock::now() - watch.endSeen >= patience);
}

}  // namespace netsift
