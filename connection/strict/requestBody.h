/* A request's body on its way upstream, looked through for uploads where they are blocked. Internal to
   connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_REQUESTBODY_H
#define NETSIFT_CONNECTION_STRICT_REQUESTBODY_H

#include "connection/cycle.h"

namespace netsift {

/* Asks a client that holds its body back for it. False when the client is gone. */
bool inviteBody(const Connection &connection, const Cycle &cycle);

inline bool hasBody(const Cycle &cycle) { return cycle.bodyLength > 0 || cycle.bodyIsChunked; }

constexpr char noChunks[] = "The browser's request comes in chunks that are none.";

enum class Collected { all, upload, failed, noChunks, tooLarge };

/* Collects the body in cycle.requestSpool, a file without a name, so that its length is known; where it is looked
   through, `upload` says that there is one in it. At most 256 MiB. */
Collected collectBody(const Connection &connection, Cycle &cycle, bool looksThrough);

/* Step: sends the body, from its spool or as it arrives from the client. */
Next forwardBody(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
