/* What both roads trace of a request and its response. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_TRACE_H
#define NETSIFT_CONNECTION_TRACE_H

#include "connection/cycle.h"

namespace netsift {

void traceRequestHead();

/* "The hostname id is [ ... ]", at level 1. */
void traceHost(const Request &request);

/* URL, port and host of a request that policy has passed. */
void tracePassed(const Request &request);

/* The line that every response leaves that is not answered from the verdict cache, at level 7. */
void traceMiss(const Cycle &cycle);

}  // namespace netsift

#endif
