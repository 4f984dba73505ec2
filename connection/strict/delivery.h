/* A response on its way to the client under StrictHttp: what reaches it was judged first, and it is told where the body
   ends. */
#ifndef NETSIFT_CONNECTION_STRICTDELIVERY_H
#define NETSIFT_CONNECTION_STRICTDELIVERY_H

#include "connection/cycle.h"

namespace netsift {

/* The last step of a strict cycle: reads the body to its end, judges, scans and sends it, and stores the verdict
   "clean" when it arrived whole, was delivered whole and passed every check that is on. */
Next deliverStrictly(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
