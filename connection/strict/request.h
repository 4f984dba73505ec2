/* A request that went out on a kept connection, as the response side sees it. Internal to connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_REQUEST_H
#define NETSIFT_CONNECTION_STRICT_REQUEST_H

#include "connection/cycle.h"

namespace netsift {

/* Sends the head again on a new connection, when the reused one turns out to be closed before any byte of an answer and
   the request has no body. */
bool sendAgain(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
