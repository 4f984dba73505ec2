/* The upstream connections of the contract's road: to the upstream proxy before the first request, to an origin with
   each. Internal to connection/contract/. */
#ifndef NETSIFT_CONNECTION_CONTRACT_CONNECT_H
#define NETSIFT_CONNECTION_CONTRACT_CONNECT_H

#include "connection/cycle.h"

namespace netsift {

/* Makes a new socket the upstream one and connects it to `proxyaddr`, in several attempts;
   connection.upstreamUnavailable tells of those. The socket before it stays open. */
void connectUpstream(Connection &connection);

}  // namespace netsift

#endif
