/* Max-Forwards (RFC 9110 section 7.6.2): how far a TRACE or OPTIONS goes. Internal to connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_MAXFORWARDS_H
#define NETSIFT_CONNECTION_STRICT_MAXFORWARDS_H

#include "connection/cycle.h"

namespace netsift {

/* Step: counts it down, or answers here, which ends the connection. A TRACE with a body is refused. */
Next checkMaxForwards(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
