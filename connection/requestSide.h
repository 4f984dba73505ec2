/* The first half of a cycle: read the request, decide whether it may pass, forward it. */
#ifndef NETSIFT_CONNECTION_REQUESTSIDE_H
#define NETSIFT_CONNECTION_REQUESTSIDE_H

#include <span>

#include "connection/cycle.h"

namespace netsift {

/* The steps in their order, which is the policy's order. */
std::span<const Step> requestSteps();

}  // namespace netsift

#endif
