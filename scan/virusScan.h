/* Clients of the two anti-virus engines. */
#ifndef NETSIFT_SCAN_VIRUSSCAN_H
#define NETSIFT_SCAN_VIRUSSCAN_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t Scan(const char *path, char *name);
NETSIFT_API int32_t isInfected(const char *path, char *name);
NETSIFT_API int32_t isInfectedclam(const char *path);
NETSIFT_API int readline(int fd, char *buffer, int maximum);
NETSIFT_API int getAVRespCode(const char *line);

NETSIFT_END

#endif
