/* How a request is forwarded under StrictHttp: its head addressed to whom it goes, without what was meant for this hop
   (RFC 9112 section 3.2, RFC 9110 section 7.6). */
#ifndef NETSIFT_HTTP_STRICTFORWARD_H
#define NETSIFT_HTTP_STRICTFORWARD_H

#include "http/strictTarget.h"
#include "state/records.h"

namespace netsift {

/* Addresses the head to the origin itself: the target in origin form, one Host field that names the target's host,
   nothing that was meant for a proxy. A "Connection" field of this hop says whether the origin is to keep the
   connection, as target.keepAlive. The request line keeps the version that it has. */
void rewriteForOrigin(Header &header, const StrictTarget &target);

}  // namespace netsift

#endif
