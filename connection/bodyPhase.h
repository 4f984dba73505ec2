/* A response's body: read piece by piece, judged, scanned, delivered, and the verdict stored. */
#ifndef NETSIFT_CONNECTION_BODYPHASE_H
#define NETSIFT_CONNECTION_BODYPHASE_H

#include "connection/cycle.h"

namespace netsift {

/* The last step of a cycle. */
Next runBodyPhase(Connection &connection, Cycle &cycle);

/* Makes the phrase filter ready for a new body. */
void prepareContentFilter();

}  // namespace netsift

#endif
