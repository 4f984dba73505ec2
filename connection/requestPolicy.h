/* What may be asked for: the steps between a request that was read and one that is forwarded. */
#ifndef NETSIFT_CONNECTION_REQUESTPOLICY_H
#define NETSIFT_CONNECTION_REQUESTPOLICY_H

#include "connection/cycle.h"

namespace netsift {

Next applyIpPatterns(Connection &connection, Cycle &cycle);
Next checkPort(Connection &connection, Cycle &cycle);
Next checkIpHost(Connection &connection, Cycle &cycle);
Next consultLists(Connection &connection, Cycle &cycle);
Next checkAdServer(Connection &connection, Cycle &cycle);
Next checkBlackLists(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
