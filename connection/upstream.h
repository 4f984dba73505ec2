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

/* Under StrictHttp: proxysock leads to the upstream proxy, or in direct mode to the cycle's target; on the socket of an
   earlier cycle while that leads there and is open and silent, else on a new one. Returns 0, or with `reason` set the
   status of the error page: 502 when the host does not resolve or refuses, 504 when it does not answer. The wait for
   each address is bounded by PROXY_TIMEOUT. */
int strictConnect(Connection &connection, Cycle &cycle);

/* A write that waits in the kernel gives up after so long; without this a peer that stops reading holds it for ever. */
void boundSends(int fd, int seconds);

/* Whether the socket's peer has closed or reset it and nothing waits to be read. */
bool isClosedByPeer(int fd);

/* Under StrictHttp: closes proxysock, so that no later cycle reuses it. */
void strictDisconnect(Connection &connection);

}  // namespace netsift

#endif
