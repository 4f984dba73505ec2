/* What the filter answers in place of a page. Every answer frees the request: `url` and `hostname` are null and both
   heads destroyed afterwards. Sends are bounded by 10 seconds each, and a client that is gone is not reported. */
#ifndef NETSIFT_PAGES_ANSWER_H
#define NETSIFT_PAGES_ANSWER_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* The block page: a "200 OK" head (under StrictHttp 403) on `sock` and the filled block template on `clientsock`,
   whatever `sock` is. URLs that hold "/Messenger." get the messenger template. A template that cannot be read gives
   "Content-Length: 0" and no body. `withpage` 0: the head alone, ended by "Content-Length: 0" and no empty line (with
   one under StrictHttp). Returns 0, which means nothing. */
NETSIFT_API int32_t blockConnection(int32_t sock, uint8_t withpage);

/* The error page: a head without a length on `sock`, since the page ends when the connection does, and the filled error
   template on `clientsock`. Under StrictHttp its status is 403: with it a host refuses whom it does not serve. */
NETSIFT_API void sendError(int32_t sock);

/* An empty answer on `sock1`; then the file `name` (may be null) is removed and both sockets are shut down for reading
   and writing. They stay open: closing them is the caller's. Returns 0, which means nothing. */
NETSIFT_API int32_t closeConnection(int32_t sock1, int32_t sock2, const char *name);

NETSIFT_END

#endif
