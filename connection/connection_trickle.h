/* One client connection, from its first request to its end. */
#ifndef NETSIFT_CONNECTION_CONNECTION_TRICKLE_H
#define NETSIFT_CONNECTION_CONNECTION_TRICKLE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Serves the connection of `clientsock` and `clientaddr` as one request and response after the other and returns when
   it is over. Before the call the host has set every setting of state/settings.h that is to differ from its value at
   load, loaded the lists and the phrase lists, and opened the debug log. One connection a process: settings (blockip,
   urlcheck, proxyport) and everything in state/connection.h change on the way, and nothing is locked.

   Returns 1 when a cycle ended the connection in the ordinary way or with a block page; 0 after a CONNECT; -1 on any
   failure and after a page of a blacklisted URL or for its content or its type; -9 when the client left in the middle
   of a scanned body; when a response ends the connection, 1 or -1 as its body went (1 when there was none).

   No socket is closed: `clientsock` and `proxysock` are the host's to close, and in direct mode without StrictHttp the
   upstream sockets of earlier cycles stay open until the process ends. What the client has not read yet is still on its
   way then: shut down the write side and drain what it sends before closing.

   Decided: a host that does not resolve in direct mode ends the call with -1 and no answer (under StrictHttp with the
   error page). A CONNECT without a port is one to 443. A request without a Host field takes its target's host; with
   neither it ends the call with -1. A match list without an empty entry ends at its hundredth, an address pattern
   without a NUL at its sixteenth byte. Where the numbers of two categories combine to one that no category has, the
   first of them gives the name. */
NETSIFT_API int32_t connectionHandle(void);

NETSIFT_END

#endif
