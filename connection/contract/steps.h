/* The contract's road: requests and responses as this system has always taken them, oddities included. What is refused
   or framed as the standards have it is the strict road's. Internal to connection/contract/. */
#ifndef NETSIFT_CONNECTION_CONTRACT_STEPS_H
#define NETSIFT_CONNECTION_CONTRACT_STEPS_H

#include <span>

#include "connection/cycle.h"

namespace netsift {

/* Read the request, decide whether it may pass, forward it. */
std::span<const Step> contractRequestSteps();

/* Read the response's head and choose how it reaches the client; the last step is the body. */
std::span<const Step> contractResponseSteps();

/* The last step of a cycle: the body is read piece by piece, judged, scanned, delivered, and the verdict stored. A page
   that is blocked for its content ends the call with -1. The raw relay of a kept-alive response without a length
   (TunnelPacketsWithoutContentLength) runs before the response's head has been sent. */
Next relayBody(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
