/* The upstream side of a connection, as far as both roads have it in common. */
#ifndef NETSIFT_CONNECTION_UPSTREAM_H
#define NETSIFT_CONNECTION_UPSTREAM_H

#include <netinet/in.h>

#include <string>

#include "connection/cycle.h"

namespace netsift {

/* Sets `proxyaddr`. */
void setUpstreamAddress(in_addr address, unsigned port);

/* The contract's road: resolves the host into `remote_host`. False, traced, when it has no IPv4 address. */
bool resolveHost(const std::string &host);

/* Makes `proxyaddr` that of proxyip:proxyport. */
void setProxyAddress();

/* The relay of a request to an origin while filtering is switched off, once its head has gone there. */
Next relayUnfiltered(Connection &connection, bool headSent, int idleSeconds = relayIdleSeconds);

}  // namespace netsift

#endif
