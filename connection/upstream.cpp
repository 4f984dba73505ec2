#include "connection/upstream.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "connection/hostEntry.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int8_t maximumAttempts = 5;
constexpr useconds_t retryMicroseconds = 1000;
constexpr int badGateway = 502, gatewayTimeout = 504;

/* The test after the loop looks at the count alone: a sixth attempt that succeeds still marks the upstream unavailable,
   and from then on every connect of the call makes a single attempt. */
void runConnectLoop(Connection &connection) {
  bool connected;
  while (!(connected = connect(proxysock, reinterpret_cast<const sockaddr *>(&proxyaddr), sizeof proxyaddr) == 0)) {
    if (connection.connectAttempts >= maximumAttempts) break;
    const int error = errno;
    usleep(retryMicroseconds);
    connection.connectAttempts++;
    dprintf(4, "error opening connection to proxy ::%s\n", strerror(error));
  }
  connection.upstreamOpen = connected;
  if (connection.connectAttempts != maximumAttempts) return;
  dprintf(1, "upstream is unavailable after %d attempts\n", connection.connectAttempts);
  connection.upstreamUnavailable = true;
}

/* A stream socket whose small writes go out at once: a head and the body behind it are separate sends. */
int openUpstreamSocket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (isStrict()) boundSends(fd, PROXY_TIMEOUT);
  return fd;
}

void setAddress(in_addr address, unsigned port) {
  proxyaddr = {};
  proxyaddr.sin_family = AF_INET;
  proxyaddr.sin_port = htons(static_cast<uint16_t>(port));
  proxyaddr.sin_addr = address;
}

/* Copied, since a later look-up reuses the resolver's record. */
bool resolveHost() {
  static HostEntry origin;
  remote_host = copyHostEntry(origin, gethostbyname(hostname));
  if (remote_host != nullptr) return true;
  dprintf(1, "error in resolving client address[ %s ]\n", peerText(hostname));
  return false;
}

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

/* A new proxysock connected to the address, or errno. */
int openWithin(Connection &connection, const sockaddr_in &address, int milliseconds) {
  proxysock = openUpstreamSocket();
  connection.upstreamOpen = proxysock >= 0;
  connection.upstreamUsed = false;
  if (proxysock >= 0 && connectWithin(proxysock, address, milliseconds)) return 0;
  const int error = errno;
  strictDisconnect(connection);
  errno = error;
  return error;
}

int failToConnect(const char *host, int32_t port) {
  snprintf(reason, sizeof reason, "No connection to %.100s, port %d: %s.", host, port, strerror(errno));
  return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
}

}  // namespace

void connectToProxy(Connection &connection) {
  proxysock = openUpstreamSocket();
  in_addr address{};
  if (proxyip == nullptr || inet_aton(proxyip, &address) == 0) address.s_addr = INADDR_NONE; /* refuses every connect */
  setAddress(address, static_cast<unsigned>(proxyport));
  runConnectLoop(connection);
}

bool connectToOrigin(Connection &connection, const Cycle &cycle) {
  if (!resolveHost()) return false;
  proxysock = openUpstreamSocket();
  const unsigned usual = cycle.isConnect ? 443 : 80;
  proxyport = static_cast<int32_t>(cycle.port != 0 ? cycle.port : usual);
  in_addr address;
  std::memcpy(&address, remote_host->h_addr_list[0], sizeof address);
  setAddress(address, static_cast<unsigned>(proxyport));
  runConnectLoop(connection);
  return true;
}

int strictConnect(Connection &connection, Cycle &cycle) {
  const bool direct = ProxyPresent != 1;
  const bool sameHost = connection.upstreamHost == hostname && connection.upstreamPort == cycle.port;
  cycle.upstreamReused = connection.upstreamOpen && (sameHost || !direct) && isQuiet(proxysock);
  if (cycle.upstreamReused) return 0;
  strictDisconnect(connection);
  const ConnectLimit limit;
  if (!direct)
    return openWithin(connection, proxyaddr, limit.left()) == 0 ? 0 : failToConnect("the upstream proxy", proxyport);
  if (!resolveHost()) {
    snprintf(reason, sizeof reason, "The host %.120s could not be found.", hostname);
    return badGateway;
  }
  proxyport = static_cast<int32_t>(cycle.port);
  int untried = 0;
  while (remote_host->h_addr_list[untried] != nullptr) untried++;
  for (char **entry = remote_host->h_addr_list; *entry != nullptr; entry++, untried--) {
    in_addr address;
    std::memcpy(&address, *entry, sizeof address);
    setAddress(address, cycle.port);
    const int left = limit.left(); /* shared out, so that a silent address leaves time for the next */
    if (openWithin(connection, proxyaddr, left < 0 ? left : left / untried) != 0) continue;
    connection.upstreamHost = hostname;
    connection.upstreamPort = cycle.port;
    return 0;
  }
  return failToConnect(hostname, proxyport);
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

void strictDisconnect(Connection &connection) {
  if (connection.upstreamOpen) close(proxysock);
  connection.upstreamOpen = false;
  connection.upstreamHost.clear();
}

}  // namespace netsift
