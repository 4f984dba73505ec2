#include "http/dial.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "http/peerSocket.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

struct Failure {
  SocketAddress address{};
  Clock::time_point until{};
};

/* A ring: the oldest makes room. Kept from one connection to the next. */
std::array<Failure, 64> failures;
size_t nextFailure;

bool isSame(const SocketAddress &one, const SocketAddress &other) {
  if (isSix(one) != isSix(other) || portOf(one) != portOf(other)) return false;
  return isSix(one) ? IN6_ARE_ADDR_EQUAL(&one.six.sin6_addr, &other.six.sin6_addr)
                    : one.four.sin_addr.s_addr == other.four.sin_addr.s_addr;
}

bool hasFailed(const SocketAddress &address, Clock::time_point now) {
  return std::ranges::any_of(
      failures, [&](const Failure &failure) { return now < failure.until && isSame(failure.address, address); });
}

void rememberFailure(const SocketAddress &address) {
  failures[nextFailure] = {address, Clock::now() + failureLifetime};
  nextFailure = (nextFailure + 1) % failures.size();
}

struct Attempt {
  SocketAddress address;
  int fd;
};

struct Race {
  std::span<const SocketAddress> untried;
  Clock::time_point end; /* of all */
  ClientWatch client;
  Clock::time_point nextAt{};
  std::vector<Attempt> attempts{}; /* those under way, in the order of their begin */
  int error = EADDRNOTAVAIL;       /* of the last that failed */
};

/* A failure lets the next address begin at once. */
void fail(Race &race, const SocketAddress &address, int error) {
  race.error = error;
  race.nextAt = {};
  rememberFailure(address);
}

void beginNext(Race &race) {
  const SocketAddress &address = race.untried.front();
  race.untried = race.untried.subspan(1);
  race.nextAt = Clock::now() + nextAddressAfter;
  const int fd = openPeerSocket(address.any.sa_family, SOCK_NONBLOCK);
  if (fd >= 0 && (connect(fd, &address.any, sizeOf(address)) == 0 || errno == EINPROGRESS)) {
    race.attempts.push_back({address, fd}); /* one that is connected is found to be writable */
    return;
  }
  fail(race, address, errno);
  if (fd >= 0) close(fd);
}

/* Until something is due: an attempt came out, the next is to begin, the time is over, or the client to be looked at
   again. The polled stand in the order of the attempts. */
int waitFor(Race &race, std::vector<pollfd> &polled) {
  constexpr std::chrono::seconds clientPause{1};
  const bool isEnded = race.client.endSeen != Clock::time_point();
  Clock::time_point until = race.end;
  const Clock::time_point now = Clock::now();
  if (!race.untried.empty()) until = std::min(until, race.nextAt);
  if (isEnded) until = std::min(until, now + clientPause);
  polled.clear();
  for (const Attempt &attempt : race.attempts) polled.push_back({attempt.fd, POLLOUT, 0});
  /* of one that sends no more a reset alone is told */
  if (race.client.client >= 0) polled.push_back({race.client.client, static_cast<short>(isEnded ? 0 : POLLRDHUP), 0});
  const bool isLimited = until != Clock::time_point::max();
  return waitOnce(polled, isLimited ? std::max(nanoseconds::zero(), until - now) : nanoseconds(-1));
}

/* Takes out those that have failed. The place of one that is connected, or the number of all that are under way. */
size_t sortOut(Race &race, const std::vector<pollfd> &polled) {
  size_t place = 0;
  for (size_t i = 0, begun = race.attempts.size(); i < begun; i++) {
    if (polled[i].revents == 0) {
      place++;
      continue;
    }
    const Attempt attempt = race.attempts[place];
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(attempt.fd, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error == 0) return place;
    fail(race, attempt.address, error);
    close(attempt.fd);
    race.attempts.erase(race.attempts.begin() + static_cast<long>(place));
  }
  return place;
}

/* Closes what is under way. Those that began before the winner, or all where nobody won in time, have not answered for
   long enough to be tried last the next time. */
void endRace(Race &race, size_t winner, bool isDecided) {
  for (size_t i = 0; i < race.attempts.size(); i++) {
    if (i == winner) continue;
    if (isDecided && i < winner) rememberFailure(race.attempts[i].address);
    close(race.attempts[i].fd);
  }
}

Wait run(Race &race, size_t &winner) {
  for (std::vector<pollfd> polled;;) {
    if (!race.untried.empty() && (race.attempts.empty() || Clock::now() >= race.nextAt)) {
      beginNext(race);
      if (race.attempts.empty()) continue;
    }
    winner = race.attempts.size();
    if (winner == 0) return Wait::failed;
    const int ready = waitFor(race, polled);
    if (ready < 0 && errno != EINTR) return Wait::failed;
    if (ready > 0) winner = sortOut(race, polled);
    if (winner < race.attempts.size()) return Wait::ready;
    const bool isTold = race.client.client >= 0 && polled.back().revents != 0;
    if ((isTold || race.client.endSeen != Clock::time_point()) && hasLeft(race.client)) return Wait::clientLeft;
    if (Clock::now() >= race.end) return Wait::timedOut;
  }
}

}  // namespace

std::vector<SocketAddress> dialOrder(const std::vector<SocketAddress> &addresses, Clock::time_point now) {
  std::vector<SocketAddress> order, six, four;
  for (const SocketAddress &address : addresses) (isSix(address) ? six : four).push_back(address);
  for (size_t i = 0; i < std::max(six.size(), four.size()); i++) {
    if (i < six.size()) order.push_back(six[i]);
    if (i < four.size()) order.push_back(four[i]);
  }
  std::stable_partition(order.begin(), order.end(),
                        [now](const SocketAddress &address) { return !hasFailed(address, now); });
  return order;
}

Dialled dial(std::span<const SocketAddress> addresses, int milliseconds, int client) {
  const Clock::time_point end =
      milliseconds < 0 ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(milliseconds);
  Race race{addresses, end, {client}};
  size_t winner = 0;
  Dialled dialled{run(race, winner)};
  endRace(race, winner, dialled.wait == Wait::ready || dialled.wait == Wait::timedOut);
  if (dialled.wait == Wait::ready) {
    dialled.fd = race.attempts[winner].fd;
    dialled.address = race.attempts[winner].address;
    fcntl(dialled.fd, F_SETFL, 0);
  }
  if (dialled.wait == Wait::timedOut) race.error = ETIMEDOUT;
  errno = race.error;
  return dialled;
}

}  // namespace netsift
