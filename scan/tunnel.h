/* Byte relays between client and upstream. */
#ifndef NETSIFT_SCAN_TUNNEL_H
#define NETSIFT_SCAN_TUNNEL_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t tunnel(int client, int upstream, int timeout);
NETSIFT_API int32_t tunnel1(int client, int upstream, int timeout);
NETSIFT_API int32_t tunnellog(int client, int upstream, int timeout);

NETSIFT_END

#endif
