/* Which responses are not scanned: rules of host and content type. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_SKIPRULES_H
#define NETSIFT_CONNECTION_SKIPRULES_H

#include "connection/cycle.h"

namespace netsift {

/* The response is not scanned; `virwhite_reason` says why. */
void skipScan(Cycle &cycle, const char *why);

/* The rule for hosts: those of viruswhite_dom.conf. While it is on (VirWL_Domain), no other rule is asked. */
void skipListedHost(Cycle &cycle);

/* The rule for content types: those of viruswhite.conf, while VirWL_MimeType is on. */
void skipListedType(Cycle &cycle);

}  // namespace netsift

#endif
