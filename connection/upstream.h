/* The upstream side of a connection: the proxy's one socket, or in direct mode an origin's per cycle. */
#ifndef NETSIFT_CONNECTION_UPSTREAM_H
#define NETSIFT_CONNECTION_UPSTREAM_H

#include "connection/cycle.h"

namespace netsift {

/* Opens proxysock to proxyip:proxyport. A failure shows as connection.upstreamUnavailable. */
void connectToProxy(Connection &connection);

/* Direct mode: resolves hostname into remote_host and opens a new proxysock to it; the previous one stays open.
   False when the name does not resolve. */
bool connectToOrigin(Connection &connection, const Cycle &cycle);

/* Direct mode under StrictHttp: proxysock is connected to the cycle's target, on the previous cycle's socket while that
   leads to the same host and port and is open and silent, else on a new one. False with `reason` set when the host does
   not resolve or cannot be connected to. The wait for each address is bounded by PROXY_TIMEOUT. */
bool strictConnect(Connection &connection, Cycle &cycle);

/* Whether the socket's peer has closed or reset it and nothing waits to be read. */
bool isClosedByPeer(int fd);

/* Under StrictHttp: closes proxysock, so that no later cycle reuses it. */
void strictDisconnect(Connection &connection);

}  // namespace netsift

#endif
