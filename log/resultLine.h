/* The debug log's result lines, at level 1 where nothing else is said: what became of a request. Administrators' filters match them as they stand.
   Internal to the library. */
#ifndef NETSIFT_LOG_RESULTLINE_H
#define NETSIFT_LOG_RESULTLINE_H

#include <string>

namespace netsift {

/* "Client IP:...,URL:...,STATUS:BLOCKED,<what>"; `what` is printed as it stands, so that what a peer sent has been
   through peerText. A null URL is printed as nothing. */
void logBlocked(const char *url, const std::string &what);

/* The same with another status: "DELIVERED" for what passed although it could not be looked at, "REFUSED" for a request
   that was answered with an error page. */
void logOutcome(const char *url, const char *status, const std::string &what);

/* "Client IP:...,SIZE:...,URL:...,STATUS:DELIVERED": the page got the pop-up script; the size is that of the piece and
   the script. */
void logDelivered(const char *url, long size);

/* The two lines of a CONNECT whose bytes are relayed unread. */
void logTunneled(const char *url);

/* "Client IP:...,CONTENT TYPE:...,HOST NAME:...,REQUESTED URL:...": a response whose body is taken up. */
void logRequested(const char *type, const char *host, const char *url);

/* At level 7, "URL:...,STATUS:BLOCKED,<what>(In cache db)": blocked for what is known of it. */
void logKnown(const char *url, const char *what);

}  // namespace netsift

#endif
