/* The relay that spools a body and releases its tail only after a clean scan. */
#ifndef NETSIFT_SCAN_SCANTUNNEL_H
#define NETSIFT_SCAN_SCANTUNNEL_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t tunnel_vs(int client, int upstream, int timeout, int useVlav, int useVlcav, unsigned contentLength,
                              unsigned threshold);
NETSIFT_API int32_t isVirusInfection(const char *path, char *name, int useVlav, int useVlcav);

NETSIFT_END

#endif
