/* What the request log says of the request itself. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_DESCRIBEREQUEST_H
#define NETSIFT_CONNECTION_DESCRIBEREQUEST_H

#include "connection/cycle.h"

namespace netsift {

/* Once the head is there, as its client sent it: who asks. */
void noteRequestHead();

/* Before the record is written or moved: what was asked for, of whom, and what came. */
void describeRequest(const Cycle &cycle);

}  // namespace netsift

#endif
