#include "connection/upstream.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "connection/publish.h"
#include "connection/refuse.h"
#include "http/peerSocket.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/hostEntry.h"

namespace netsift {
namespace {

constexpr int8_t maximumAttempts = 5;
constexpr useconds_t retryMicroseconds = 1000;
constexpr int badGateway = 502;

}  // namespace

void setUpstreamAddress(in_addr address, unsigned port) {
  proxyaddr = {};
  proxyaddr.sin_family = AF_INET;
  proxyaddr.sin_port = htons(static_cast<uint16_t>(port));
  proxyaddr.sin_addr = address;
}

/* Copied, since a later look-up reuses the resolver's record. */
bool resolveHost(const std::string &host) {
  static HostEntry origin;
  remote_host = copyHostEntry(origin, gethostbyname(host.c_str()));
  if (remote_host != nullptr) return true;
  dprintf(1, "error in resolving client address[ %s ]\n", peerText(host.c_str()));
  return false;
}

/* The test after the loop looks at the count alone: a sixth attempt that succeeds still marks the upstream unavailable,
   and from then on every connect of the call makes a single attempt. */
void runConnectLoop(Connection &connection) {
  const int fd = connection.ends.upstream;
  bool connected;
  while (!(connected = connect(fd, reinterpret_cast<const sockaddr *>(&proxyaddr), sizeof proxyaddr) == 0)) {
    if (connection.connectAttempts >= maximumAttempts) break;
    const int error = errno;
    usleep(retryMicroseconds);
    connection.connectAttempts++;
    dprintf(4, "error opening connection to proxy ::%s\n", strerror(error));
  }
  connection.upstream.open = connected;
  if (connection.connectAttempts != maximumAttempts) return;
  dprintf(1, "upstream is unavailable after %d attempts\n", connection.connectAttempts);
  connection.upstreamUnavailable = true;
}

void connectToProxy(Connection &connection) {
  publishUpstream(connection, openPeerSocket());
  in_addr address{};
  if (proxyip == nullptr || inet_aton(proxyip, &address) == 0) address.s_addr = INADDR_NONE; /* refuses every connect */
  setUpstreamAddress(address, static_cast<unsigned>(proxyport));
  runConnectLoop(connection);
}

Next passEverything(Connection &connection, Cycle &) {
  if (ProxyPresent != 1 || DisableNetsiftService != 1) return Next::step;
  tunnel(connection.ends.client, connection.ends.upstream, relayIdleSeconds);
  return endCall(connection, callEnded);
}

Next relayUnfiltered(Connection &connection, bool headSent) {
  if (!headSent) {
    dprintf(2, "Timeout while sending header to proxy\n");
    return endCall(connection, callFailed);
  }
  tunnel(connection.ends.client, connection.ends.upstream, relayIdleSeconds);
  return endCall(connection, callEnded);
}

Next checkUpstream(Connection &connection, Cycle &cycle) {
  if (!connection.upstreamUnavailable || ProxyPresent != 1) return Next::step;
  return refuse(connection, cycle, {.reason = reasonFor(Why::proxyDown), .page = Page::error, .status = badGateway});
}

}  // namespace netsift
