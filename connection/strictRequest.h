/* What StrictHttp changes in the first half of a cycle. Each function is asked by the step it stands for. */
#ifndef NETSIFT_CONNECTION_STRICTREQUEST_H
#define NETSIFT_CONNECTION_STRICTREQUEST_H

#include "connection/cycle.h"
#include "http/strictParse.h"

namespace netsift {

/* Answers with the error page: `reason` becomes the fault's text, or stays when that is null. The call ends with -1. */
Next strictError(Connection &connection, int status, const char *text);

/* Reads the head and refuses what RFC 9112 does not allow. */
Next readStrictRequest(Connection &connection, Cycle &cycle);

/* Takes method, host, port and URL from the request line and the Host field. */
Next identifyStrictly(Connection &connection, Cycle &cycle);

/* Opens the relay of a request that passes untouched: a direct one is answered (CONNECT) or addressed to its origin
   with "Connection: close", since what followed it on the connection would go the same way whatever it names. */
Next openStrictRelay(Connection &connection, Cycle &cycle);

/* Connects, and in direct mode serves CONNECT to its end. */
Next connectStrictly(Connection &connection, Cycle &cycle);

/* Forwards head and body; an upload that the check finds is refused before anything has gone upstream. */
Next forwardStrictly(Connection &connection, Cycle &cycle);

/* Sends the head again on a new connection, when the reused one turns out to be closed before any byte of an answer and
   the request has no body. */
bool sendStrictlyAgain(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
