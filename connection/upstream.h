/* The upstream side of a connection, as far as both roads have it in common: the upstream proxy's socket, opened before
   the first cycle, and what a socket to an origin is made of. */
#ifndef NETSIFT_CONNECTION_UPSTREAM_H
#define NETSIFT_CONNECTION_UPSTREAM_H

#include <netinet/in.h>

#include <string>

#include "connection/cycle.h"

namespace netsift {

/* Sets `proxyaddr`. */
void setUpstreamAddress(in_addr address, unsigned port);

/* Resolves the host into `remote_host`. False, traced, when it has no IPv4 address. */
bool resolveHost(const std::string &host);

/* Connects the upstream socket to `proxyaddr`, in several attempts; connection.upstreamUnavailable tells of those. */
void runConnectLoop(Connection &connection);

/* Opens the upstream socket to proxyip:proxyport. */
void connectToProxy(Connection &connection);

/* The relay of a request to an origin while filtering is switched off, once its head has gone there. */
Next relayUnfiltered(Connection &connection, bool headSent);

/* Steps: filtering switched off beside an upstream proxy, where nothing is read at all; and the error page for an
   upstream proxy that could not be reached, which the client gets once it has asked for something. */
Next passEverything(Connection &connection, Cycle &cycle);
Next checkUpstream(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
