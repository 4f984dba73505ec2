/* CONNECT on the strict road: where it may go, and how its tunnel begins. Internal to connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_TUNNEL_H
#define NETSIFT_CONNECTION_STRICT_TUNNEL_H

#include "connection/cycle.h"

namespace netsift {

/* Step: refuses a CONNECT to a port that is not one of `connectports`, unless that is empty. */
Next checkConnectPort(Connection &connection, Cycle &cycle);

/* A CONNECT that was answered with success. While TunnelTlsOnly is on, what the client says first is judged before the
   site has a byte of it: it has to be a ClientHello, and the server name in it passes as the CONNECT's host did, or the
   connection ends. Then both sides are relayed. */
Next runTunnel(Connection &connection, Cycle &cycle);

/* How long a relay may be without traffic, in seconds. */
int tunnelIdleSeconds();

}  // namespace netsift

#endif
