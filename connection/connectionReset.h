/* Serving one connection after another: what a connection changes goes back to what it was after loading. */
#ifndef NETSIFT_CONNECTION_CONNECTIONRESET_H
#define NETSIFT_CONNECTION_CONNECTIONRESET_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Takes the image that netsift_resetState goes back to: the connection's variables, the settings that serving rewrites
   (blockip, urlcheck, proxyport, DisableNetsiftService, tunnellist), the page's weighing, and the entries of the loaded
   domain lists that a look-up would trim. To be called when settings are made and lists loaded, between connections;
   again after either has changed. Processes forked afterwards have the image too. */
NETSIFT_API void netsift_keepState(void);

/* Ends what the connection left, after connectionHandle: releases the texts and heads it owned, closes the scan file's
   stream and every descriptor numbered `firstDescriptor` or higher, sockets of connectionHandle among them (a negative
   number: none), and puts the image back. The next connection finds no byte of this one: httpbody is all zero. What the
   host keeps open lies below `firstDescriptor`; what KeepUpstreamSeconds keeps stays too. Without an image the variables are released and set to 0, the settings
   left alone. The scan file itself is the host's to remove. */
NETSIFT_API void netsift_resetState(int32_t firstDescriptor);

/* Closes what KeepUpstreamSeconds keeps, for a host whose process waits for its next client for longer than that. */
NETSIFT_API void netsift_releaseUpstreams(void);

NETSIFT_END

#endif
