/* The strict road, under StrictHttp: requests and responses as RFC 9110 and 9112 have them. What is not allowed is
   refused with a status that says so; every response, whatever its status, is framed and whole, and judged before its
   client has it. Internal to connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_STEPS_H
#define NETSIFT_CONNECTION_STRICT_STEPS_H

#include <span>

#include "connection/cycle.h"

namespace netsift {

std::span<const Step> strictRequestSteps();
std::span<const Step> strictResponseSteps();

/* What the lists are asked about: method, host, port and URL of a target. */
void fillRequest(Request &request, const StrictTarget &target);

/* Ends the call for a client that is not there any more. */
Next leave(Connection &connection);

/* Sends the head again on a new connection, when the reused one turns out to be closed before any byte of an answer and
   the request has no body. */
bool sendAgain(Connection &connection, Cycle &cycle);

/* Takes one interim head off the upstream socket and passes it on. False when the client is gone, or something else or
   too many of them came. */
bool relayInterim(Connection &connection, Cycle &cycle);

/* The last step of a cycle: reads the body to its end, judges, scans and sends it, and stores the verdict "clean" when
   it arrived whole, was delivered whole and passed every check that is on. */
Next deliver(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
