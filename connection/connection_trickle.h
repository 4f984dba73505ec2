/* One client connection, from its first request to its end. */
#ifndef NETSIFT_CONNECTION_CONNECTION_TRICKLE_H
#define NETSIFT_CONNECTION_CONNECTION_TRICKLE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Serves the connection of `clientsock` and `clientaddr` as one request and response after the other and returns when
   it is over. Before the call the host has set every setting of state/settings.h that is to differ from its value at
   load, loaded the lists and the phrase lists, and opened the debug log. One connection at a time in a process:
   settings (blockip, urlcheck, proxyport) and everything in state/connection.h change on the way, and nothing is
   locked. A process that serves another one goes back in between with netsift_resetState.

   Returns 1 when a cycle ended the connection in the ordinary way or with a block page; 0 after a CONNECT; -1 on any
   failure and after a page of a blacklisted URL or for its content or its type; -9 when the client left in the middle
   of a scanned body (under StrictHttp -1); when a response ends the connection, 1 or -1 as its body went (1 when there
   was none).

   `clientsock` is the host's to close, and `proxysock` unless it is -1: without StrictHttp nothing is closed, in direct
   mode the upstream sockets of earlier requests neither; with it the upstream is closed here as soon as it cannot be
   used again, and `proxysock` then -1. What the client has not read yet is still on its way on return: shut down the
   write side and drain what it sends before closing.

   Decided: a host that does not resolve in direct mode ends the call with -1 and no answer (under StrictHttp with the
   error page). A CONNECT without a port goes to 443; its port check sees 80, as getURL reads it, but under StrictHttp
   443. A request without a Host field takes its target's host; with neither it ends the call with -1. A match list
   without an empty entry ends at its hundredth, an address pattern without a NUL at its sixteenth byte. Where the
   numbers of two categories combine to one that no category has, the first of them gives the name. */
NETSIFT_API int32_t connectionHandle(void);

NETSIFT_END

#endif
