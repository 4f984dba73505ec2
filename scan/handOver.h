/* Relays that leave the process: a host may take over the sockets of a tunnel that nobody looks into any more. Exported
   for such hosts. */
#ifndef NETSIFT_SCAN_HANDOVER_H
#define NETSIFT_SCAN_HANDOVER_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Null at load: every relay is the process's own. Else it is asked, with StrictHttp, for each CONNECT and each change
   of protocol whose head has gone out. 1: the host relays between its own copies of the two sockets from now on, and
   ends them after `idleSeconds` without traffic; the call of connectionHandle ends, and neither socket may be shut down
   here, only closed. 0: the relay stays. `url` is printable as logs have it. */
NETSIFT_API extern int32_t (*netsift_handOver)(int32_t client, int32_t upstream, int32_t idleSeconds, const char *url);

NETSIFT_END

#endif
