#include "connection/strict/connect.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/upstream.h"
#include "http/localAddress.h"
#include "http/peerSocket.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int badGateway = 502, gatewayTimeout = 504;

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

/* A new upstream socket connected to `proxyaddr`; else none, and errno. */
Wait openWithin(Connection &connection, int milliseconds) {
  const int fd = openPeerSocket();
  if (fd < 0) return Wait::failed;
  boundSends(fd, PROXY_TIMEOUT);
  connection.upstreams[connection.current].fd = fd;
  connection.upstreams[connection.current].isPersonal = false;
  publishUpstream(connection, fd);
  const Wait wait = connectWithin(fd, proxyaddr, milliseconds, connection.ends.client);
  if (wait == Wait::ready) return wait;
  const int error = errno;
  closeUpstream(connection);
  errno = error;
  return wait;
}

int failToConnect(const char *host, int32_t port) {
  std::snprintf(reason, sizeof reason, "No connection to %.100s, port %d: %s.", host, port, strerror(errno));
  return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
}

/* A name with a single such address is no site's. */
bool leadsHere() {
  for (char **entry = remote_host->h_addr_list; *entry != nullptr; entry++) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&address.sin_addr, *entry, sizeof address.sin_addr);
    if (isLocalAddress(reinterpret_cast<const sockaddr *>(&address))) return true;
  }
  return false;
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
    const Wait wait = openWithin(connection, left < 0 ? left : left / untried);
    if (wait == Wait::clientLeft) return clientHasLeft;
    if (wait == Wait::ready) return 0;
  }
  return failToConnect(request.hostname.c_str(), proxyport);
}

/* Makes the current one that which leads there, or a new one in the place of one that leads nowhere yet, else of the
   next. */
void turnTo(Connection &connection, const std::string &host, unsigned port) {
  auto &all = connection.upstreams;
  const auto index = [&](const std::string &name, unsigned number) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Upstream &one) { return one.host == name && one.port == number; });
    return static_cast<size_t>(found - all.begin());
  };
  size_t place = index(host, port);
  if (place == all.size()) place = index("", 0);
  if (place == all.size()) place = (connection.current + 1) % all.size();
  connection.current = place;
  Upstream &chosen = all[place];
  if (chosen.host != host || chosen.port != port) {
    if (chosen.fd >= 0) close(chosen.fd);
    chosen = {host, port};
  }
  publishUpstream(connection, chosen.fd);
}

}  // namespace

int openUpstream(Connection &connection, Cycle &cycle, bool mayReuse) {
  const Request &request = cycle.request;
  const bool direct = ProxyPresent != 1;
  if (!direct && RefuseLocalAddresses != 0 && isLocalHost(request.hostname)) return targetIsLocal;
  cycle.usesUpstream = true;
  turnTo(connection, direct ? request.hostname : "", direct ? request.port : 0);
  cycle.upstreamReused = mayReuse && connection.ends.upstream >= 0 && isQuiet(connection.ends.upstream);
  if (cycle.upstreamReused) return 0;
  closeUpstream(connection);
  const ConnectLimit limit;
  if (!direct) {
    const Wait wait = openWithin(connection, limit.left());
    if (wait == Wait::clientLeft) return clientHasLeft;
    if (wait == Wait::ready) return 0;
    setReason(reasonFor(Why::proxyDown, strerror(errno)));
    return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
  }
  if (resolveHost(request.hostname)) {
    const bool isRefused = RefuseLocalAddresses != 0 && leadsHere();
    return isRefused ? targetIsLocal : openOrigin(connection, request, limit);
  }
  std::snprintf(reason, sizeof reason, "The host %.120s could not be found.", request.hostname.c_str());
  return badGateway;
}

void closeUpstream(Connection &connection) {
  Upstream &current = connection.upstreams[connection.current];
  if (current.fd < 0) return;
  close(current.fd);
  current.fd = -1;
  publishUpstream(connection, -1);
}

}  // namespace netsift
