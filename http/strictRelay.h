/* A body that goes from one peer to the other without coming here. Internal to the library. */
#ifndef NETSIFT_HTTP_STRICTRELAY_H
#define NETSIFT_HTTP_STRICTRELAY_H

#include <cstdint>

#include "http/strictWire.h"

namespace netsift {

/* Sends what is left of a body with a length on to the client, by splice(2); `sent` grows by what went out. A wait for
   the upstream lasts `waitMilliseconds` at most (negative: without limit), one for the client `clientSeconds`. `end` when
   all of it went out, `clientLeft` when the client is gone or took nothing for so long. `piece`: it is to be read and
   sent, since these sockets cannot be spliced or there is no pipe; nothing went out. */
BodyRead relayBody(int upstream, BodySource &source, int client, int waitMilliseconds, int clientSeconds,
                   uint64_t &sent);

}  // namespace netsift

#endif
