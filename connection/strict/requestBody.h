/* A request's body on its way upstream, looked through for uploads where they are blocked. Internal to
   connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_REQUESTBODY_H
#define NETSIFT_CONNECTION_STRICT_REQUESTBODY_H

#include "connection/cycle.h"

namespace netsift {

/* Asks a client that holds its body back for it. False when the client is gone. */
bool inviteBody(const Connection &connection, const Cycle &cycle);

enum class Upload { clean, found, failed, tooLarge };

/* Collects the body in cycle.requestSpool, a file without a name, and looks for uploads in windows that overlap. */
Upload spoolUpload(const Connection &connection, Cycle &cycle);

/* Step: sends the body, from its spool or as it arrives from the client. */
Next forwardBody(Connection &connection, Cycle &cycle);

}  // namespace netsift

#endif
