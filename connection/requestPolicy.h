/* What may be asked for: the steps between a request that was read and one that is forwarded. */
#ifndef NETSIFT_CONNECTION_REQUESTPOLICY_H
#define NETSIFT_CONNECTION_REQUESTPOLICY_H

#include "connection/cycle.h"
#include "pages/reasons.h"

namespace netsift {

void traceRequestHead();

/* "The hostname id is [ ... ]", at level 1. */
void traceHost(const Request &request);

/* URL, port and host of a request that policy has passed. */
void tracePassed(const Request &request);

/* Messenger traffic, which passes untouched: whether an entry of `tunnellist` occurs in the URL, and in all that servers
   may make of it. Entries lose their trailing blanks in place; the first one that is then empty ends the list, else
   the hundredth. */
bool isMessenger(const Request &request);

/* Its relay, without a time limit, with a transcript when `logtunnel` is on; the call ends with 1. */
Next relayMessenger(Connection &connection);

/* Whether the request's body is looked through for files: not when all forms of the URL are those of a site that takes
   uploads. */
bool checksUploads(const Request &request);

/* Refuses the request for its port. */
Next refusePort(Connection &connection, const Cycle &cycle, Why why);

Next applyIpPatterns(Connection &connection, Cycle &cycle);
Next checkPort(Connection &connection, Cycle &cycle);
Next checkIpHost(Connection &connection, Cycle &cycle);
Next consultLists(Connection &connection, Cycle &cycle);
Next checkAdServer(Connection &connection, Cycle &cycle);
Next checkBlackLists(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
