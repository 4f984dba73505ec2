#include "connection/strict/connect.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <span>

#include "connection/publish.h"
#include "connection/refuse.h"
#include "http/dial.h"
#include "http/localAddress.h"
#include "http/peerSocket.h"
#include "http/siteAddresses.h"
#include "http/strictField.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/connection.h"
#include "state/observer.h"
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

/* A new upstream socket, connected to the first of the addresses that answers; else none, and errno. */
Wait openWithin(Connection &connection, std::span<const SocketAddress> addresses, int milliseconds) {
  const Dialled dialled = netsift_observer != nullptr
                              ? Dialled{Wait::ready, netsift_observer->connected(), addresses.front()}
                              : dial(addresses, milliseconds, connection.ends.client);
  if (dialled.wait != Wait::ready) return dialled.wait;
  boundSends(dialled.fd, PROXY_TIMEOUT);
  connection.upstreams[connection.current].fd = dialled.fd;
  connection.upstreams[connection.current].isPersonal = false;
  publishUpstream(connection, dialled.fd);
  proxyaddr = isSix(dialled.address) ? sockaddr_in{AF_INET6, 0, {}, {}} : dialled.address.four;
  return dialled.wait;
}

int failToConnect(const char *host, int32_t port) {
  std::snprintf(reason, sizeof reason, "No connection to %.100s, port %d: %s.", host, port, strerror(errno));
  return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
}

/* A name with a single such address is no site's. */
bool leadsHere(const std::vector<SocketAddress> &addresses) {
  return std::any_of(addresses.begin(), addresses.end(),
                     [](const SocketAddress &address) { return isLocalAddress(&address.any); });
}

int openOrigin(Connection &connection, const Request &request) {
  const ConnectLimit limit;
  const std::vector<SocketAddress> addresses = siteAddresses(request.hostname, request.port);
  if (addresses.empty()) {
    dprintf(1, "error in resolving client address[ %s ]\n", peerText(request.hostname.c_str()));
    std::snprintf(reason, sizeof reason, "The host %.120s could not be found.", request.hostname.c_str());
    return badGateway;
  }
  if (RefuseLocalAddresses != 0 && leadsHere(addresses)) return targetIsLocal;
  proxyport = static_cast<int32_t>(request.port);
  const Wait wait = openWithin(connection, dialOrder(addresses), limit.left());
  if (wait == Wait::clientLeft) return clientHasLeft;
  return wait == Wait::ready ? 0 : failToConnect(request.hostname.c_str(), proxyport);
}

/* An IPv4 address in whatever form the host gave it, or the one that refuses every connect, is in `proxyaddr` already.
 */
SocketAddress proxyAddress() {
  SocketAddress address{};
  if (proxyip != nullptr && parseHost(proxyip, &address) && isSix(address)) {
    setPort(address, static_cast<unsigned>(proxyport));
  } else {
    address.four = proxyaddr;
  }
  return address;
}

int openProxy(Connection &connection) {
  const SocketAddress address = proxyAddress();
  const Wait wait = openWithin(connection, {&address, 1}, ConnectLimit().left());
  if (wait == Wait::clientLeft) return clientHasLeft;
  if (wait == Wait::ready) return 0;
  setReason(reasonFor(Why::proxyDown, strerror(errno)));
  return errno == ETIMEDOUT ? gatewayTimeout : badGateway;
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

bool carriesLogin() {
  for (const HeaderLine *line = reqheader.first; line != nullptr; line = line->next) {
    if (isField(line, "Authorization:") || isField(line, "Proxy-Authorization:")) return true;
  }
  return false;
}

}  // namespace

int openUpstream(Connection &connection, Cycle &cycle, Reuse reuse) {
  const Request &request = cycle.request;
  const bool direct = ProxyPresent != 1;
  if (!direct && RefuseLocalAddresses != 0 && isLocalHost(request.hostname)) return targetIsLocal;
  cycle.usesUpstream = true;
  if (connection.inTunnel) return 0;
  turnTo(connection, direct ? request.hostname : "", direct ? request.port : 0);
  Upstream &upstream = connection.upstreams[connection.current];
  const bool fits = reuse == Reuse::any || (reuse == Reuse::personal && upstream.isPersonal);
  cycle.upstreamReused = fits && upstream.fd >= 0 && isQuiet(upstream.fd);
  if (!cycle.upstreamReused) {
    closeUpstream(connection);
    const int status = direct ? openOrigin(connection, request) : openProxy(connection);
    if (status != 0) return status;
  }
  upstream.isPersonal |= carriesLogin();
  return 0;
}

void closeUpstream(Connection &connection) {
  Upstream &current = connection.upstreams[connection.current];
  if (current.fd < 0) return;
  close(current.fd);
  current.fd = -1;
  publishUpstream(connection, -1);
}

}  // namespace netsift
