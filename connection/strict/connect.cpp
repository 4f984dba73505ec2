#include "connection/strict/connect.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "connection/publish.h"
#include "connection/upstream.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int badGateway = 502, gatewayTimeout = 504;

/* Still open, and nothing waiting that would be taken for the next response. */
bool isQuiet(int fd) {
  pollfd waiting{fd, POLLIN, 0};
  return poll(&waiting, 1, 0) == 0;
}

/* A connect that waits no longer than this, negative: without limit; errno says what failed. */
bool connectWithin(int fd, const sockaddr_in &address, int milliseconds) {
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  int error = 0;
  if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) error = errno;
  if (error == EINPROGRESS) {
    pollfd waiting{fd, POLLOUT, 0};
    socklen_t size = sizeof error;
    if (poll(&waiting, 1, milliseconds) == 1) {
      getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    } else {
      error = ETIMEDOUT;
    }
  }
  fcntl(fd, F_SETFL, flags);
  errno = error;
  return error == 0;
}

/* PROXY_TIMEOUT for all addresses of a host together. */
struct ConnectLimit {
  const bool limited = PROXY_TIMEOUT > 0;
  const std::chrono::steady_clock::time_point end =
      std::chrono::steady_clock::now() + std::chrono::seconds(PROXY_TIMEOUT);
  int left() const {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return limited ? static_cast<int>(std::clamp<int64_t>(rest.count(), 0, INT32_MAX)) : -1;
  }
};

/* A new upstream socket connected to `proxyaddr`, or errno. */
int openWithin(Connection &connection, int milliseconds) {
  const int fd = openUpstreamSocket();
  if (fd >= 0) boundSends(fd, PROXY_TIMEOUT);
  publishUpstream(connection, fd);
  connection.upstream.open = fd >= 0;
  connection.upstream.used = false;
  if (fd >= 0 && connectWithin(fd, proxyaddr, milliseconds)) return 0;
  const int error = errno;
  closeUpstream(connection);
  errno = error;
  return error;
}

int failToConnect(const char *host, int32_t port) {
  std::snprintf(reason, sizeof reason, "No connection to %.100s, port %d: %s.", host, port, strerror(errno));
  return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
}

/* Each address in its turn; the time left is shared out, so that a silent one leaves time for the next. */
int openOrigin(Connection &connection, const Request &request, const ConnectLimit &limit) {
  proxyport = static_cast<int32_t>(request.port);
  int untried = 0;
  while (remote_host->h_addr_list[untried] != nullptr) untried++;
  for (char **entry = remote_host->h_addr_list; *entry != nullptr; entry++, untried--) {
    in_addr address;
    std::memcpy(&address, *entry, sizeof address);
    setUpstreamAddress(address, request.port);
    const int left = limit.left();
    if (openWithin(connection, left < 0 ? left : left / untried) != 0) continue;
    connection.upstream.host = request.hostname;
    connection.upstream.port = request.port;
    return 0;
  }
  return failToConnect(request.hostname.c_str(), proxyport);
}

}  // namespace

int openUpstream(Connection &connection, Cycle &cycle) {
  const UpstreamUse &use = connection.upstream;
  const Request &request = cycle.request;
  const bool direct = ProxyPresent != 1;
  const bool sameHost = use.host == request.hostname && use.port == request.port;
  cycle.upstreamReused = use.open && (sameHost || !direct) && isQuiet(connection.ends.upstream);
  if (cycle.upstreamReused) return 0;
  closeUpstream(connection);
  const ConnectLimit limit;
  if (!direct) {
    return openWithin(connection, limit.left()) == 0 ? 0 : failToConnect("the upstream proxy", proxyport);
  }
  if (resolveHost(request.hostname)) return openOrigin(connection, request, limit);
  std::snprintf(reason, sizeof reason, "The host %.120s could not be found.", request.hostname.c_str());
  return badGateway;
}

void boundSends(int fd, int seconds) {
  const timeval limit{seconds < 0 ? 0 : seconds, 0}; /* 0: without limit */
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool isClosedByPeer(int fd) {
  char byte;
  const ssize_t count = recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

void closeUpstream(Connection &connection) {
  if (!connection.upstream.open) return;
  close(connection.ends.upstream);
  publishUpstream(connection, -1);
  connection.upstream = {};
}

}  // namespace netsift
