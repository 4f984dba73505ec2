/* A response's body: read piece by piece, judged, scanned, delivered, and the verdict stored. */
#ifndef NETSIFT_CONNECTION_BODYPHASE_H
#define NETSIFT_CONNECTION_BODYPHASE_H

#include "connection/cycle.h"

namespace netsift {

/* The last step of a cycle. A page that is blocked for its content ends the call with -1. The raw relay of a kept-alive
   response without a length (TunnelPacketsWithoutContentLength) runs before the response's head has been sent. */
Next runBodyPhase(Connection &connection, Cycle &cycle);

/* Makes the phrase filter ready for a new body. */
void prepareContentFilter();

}  // namespace netsift

#endif
