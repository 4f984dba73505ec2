#include "connection/upstream.h"

#include <arpa/inet.h>
#include <netdb.h>

#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/hostEntry.h"

namespace netsift {
void setUpstreamAddress(in_addr address, unsigned port) {
  proxyaddr = {};
  proxyaddr.sin_family = AF_INET;
  proxyaddr.sin_port = htons(static_cast<uint16_t>(port));
  proxyaddr.sin_addr = address;
}

/* Copied, since a later look-up reuses the resolver's record. An address is its own answer. */
bool resolveHost(const std::string &host) {
  static HostEntry origin;
  in_addr address;
  char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
  const hostent numeric{const_cast<char *>(host.c_str()), nullptr, AF_INET, sizeof address, addresses};
  const bool isNumeric = inet_pton(AF_INET, host.c_str(), &address) == 1;
  remote_host = copyHostEntry(origin, isNumeric ? &numeric : gethostbyname(host.c_str()));
  if (remote_host != nullptr) return true;
  dprintf(1, "error in resolving client address[ %s ]\n", peerText(host.c_str()));
  return false;
}

void setProxyAddress() {
  in_addr address{};
  if (proxyip == nullptr || inet_aton(proxyip, &address) == 0) address.s_addr = INADDR_NONE; /* refuses every connect */
  setUpstreamAddress(address, static_cast<unsigned>(proxyport));
}

Next relayUnfiltered(Connection &connection, bool headSent, int idleSeconds) {
  if (!headSent) {
    dprintf(2, "Timeout while sending header to proxy\n");
    return endCall(connection, callFailed);
  }
  noteOutcome(NETSIFT_REQUEST_RELAYED);
  tunnel(connection.ends.client, connection.ends.upstream, idleSeconds);
  return endCall(connection, callEnded);
}

}  // namespace netsift
