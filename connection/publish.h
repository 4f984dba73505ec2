/* The interface's process-wide variables as the cycle's own records have them: written here and nowhere else, for the
   exported operations that read them. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_PUBLISH_H
#define NETSIFT_CONNECTION_PUBLISH_H

#include <netdb.h>

#include "connection/cycle.h"

namespace netsift {

/* Sets `url`, `hostname` and `request`. False when memory is short. */
bool publishRequest(const Request &request);

/* Sets `isipaddr` and what the host's address resolved to: `reqhost`, null for nothing, and where there is a name
   `reshostname` and `resurl`. */
void publishAddress(const Request &request, hostent *reverse);

/* The end of a request: `url` and `hostname` freed and null. */
void retractRequest();

/* Makes the socket the connection's upstream, and proxysock; -1 for none. */
void publishUpstream(Connection &connection, int fd);

/* Points `dateAndTime1` to the date of the cycle's response, null for none. */
void publishDate(const Cycle &cycle);

/* What points into the cycle points nowhere any more. */
void retractCycle(const Cycle &cycle);

}  // namespace netsift

#endif
