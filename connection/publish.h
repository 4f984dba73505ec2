/* The interface's process-wide variables as the cycle's own records have them: written here and nowhere else, for the
   exported operations that read them. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_PUBLISH_H
#define NETSIFT_CONNECTION_PUBLISH_H

#include <netdb.h>

#include "connection/cycle.h"

namespace netsift {

/* Sets `url`, `hostname` and `request`. False when memory is short. */
bool publishRequest(const Request &request);

/* Sets `isipaddr` and `reqhost`, what the host's address resolved to, null for nothing. */
void publishAddress(const Request &request, hostent *reverse);

/* Sets `reshostname` and `resurl`. */
void publishReverseName(const ReverseName &name);

/* Sets `hostname` to what a look-up in the lists leaves of it: no white space around it. */
void publishTrimmedHost(const Request &request);

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
