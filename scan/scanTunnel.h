/* The verdict on a scan file, and the relay that releases a body's tail only after a clean scan. */
#ifndef NETSIFT_SCAN_SCANTUNNEL_H
#define NETSIFT_SCAN_SCANTUNNEL_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Relays both ways until a side closes, fails or is silent for `timeout` seconds (negative: no limit), while every byte
   of the body is appended to the child's scan file. A block that keeps the total below `threshold` and away from
   `contentLength` is forwarded at once; every other one waits for a clean scan of all that was spooled. The response
   header, `respheader`, goes out before the first block that does.

   0 when the relay ended by itself, also when the scan file cannot be opened or written: what was not yet forwarded is
   then lost to the client. -9 when the content was blocked (infected, or not to be scanned): `reason` says why and the
   block page has been sent, into the same stream behind whatever the client had got by then.

   The scan file is only appended to: the caller removes that of an earlier response, and this one afterwards. A path
   longer than `virfilename` is refused with a level-1 trace, and the scan file then is one that cannot be opened.
   The sockets stay open. */
NETSIFT_API int32_t tunnel_vs(int client, int upstream, int timeout, int useVlav, int useVlcav, unsigned contentLength,
                              unsigned threshold);

/* The engines' verdict (see virusScan.h) on a file; an engine is asked when its flag is exactly 1, and without any the
   file is clean. With both, the primary engine's "infected" stands alone, its failure leaves the verdict to the second
   engine, and after its "clean" only the second's "infected" counts: a failure of the second is then ignored.
   `name`, null or at least 256 bytes, is what the primary engine reports; the second reports none. */
NETSIFT_API int32_t isVirusInfection(const char *path, char *name, int useVlav, int useVlcav);

NETSIFT_END

#endif
