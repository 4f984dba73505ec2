/* Connections to sites, and to the upstream proxy, that are kept from one client of a process to its next. */
#ifndef NETSIFT_CONNECTION_STRICT_KEPTUPSTREAMS_H
#define NETSIFT_CONNECTION_STRICT_KEPTUPSTREAMS_H

#include <vector>

#include "connection/cycle.h"

namespace netsift {

/* Gives the connection what an earlier one left, where that was less than KeepUpstreamSeconds ago. */
void takeKept(Connection &connection);

/* Keeps the upstream sockets whose last response was complete, for the next client. Not those that are personal: a login
   that was made on one belongs to its client, and the next must not speak in its name. Without KeepUpstreamSeconds all
   are closed but the current one, which is the host's to close. */
void keepUpstreams(Connection &connection);

/* Ascending. */
std::vector<int> keptDescriptors();

}  // namespace netsift

#endif
