/* Byte relays between client and upstream: what the filter has decided not to look into. */
#ifndef NETSIFT_SCAN_TUNNEL_H
#define NETSIFT_SCAN_TUNNEL_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* The three take connected sockets, which stay the caller's and open, after whatever head precedes the raw bytes has
   been sent. `timeout` is in seconds, for every wait and every send; negative for none. They end when a side closes, a
   read or send fails or nothing comes in time, which the caller cannot tell apart: the result is always 0. An
   interrupted wait or read is taken up again, and so is a wait that timed out while errno still tells of an interrupted
   call from before; with StrictHttp a time-out always ends the relay.

   Each read from upstream writes "CLIENT IP:...,URL:...,SIZE=..." to the debug log at level 1, closes (0) and failures
   (-1) included; a null `url` is printed as nothing. How often client and upstream took turns is logged at level 4 at
   the end. */

/* Both directions, until it ends as above. */
NETSIFT_API int32_t tunnel(int client, int upstream, int timeout);

/* At most one block of 8192 bytes from upstream to the client, and back as soon as that has gone out or the client has
   something to say, which is left unread for the next request. There is no closing line on these two roads. */
NETSIFT_API int32_t tunnel1(int client, int upstream, int timeout);

/* `tunnel`, with everything that passes appended, raw, to <clientip>.log in the log folder: a line with time and
   client, then "\nClient:" or "\nProxy:" before each read's bytes. A file that cannot be opened is reported on standard
   output ("error opening tunnel file"); then, and when its path does not fit 255 bytes or memory is short, there is no
   transcript and the relay goes on. Transcripts of one client's connections share the file without a lock. */
NETSIFT_API int32_t tunnellog(int client, int upstream, int timeout);

NETSIFT_END

#endif
