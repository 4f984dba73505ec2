/* What is never scanned: by host and by content type. */
#ifndef NETSIFT_SCAN_VIRUSWHITELIST_H
#define NETSIFT_SCAN_VIRUSWHITELIST_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t inVirusWhiteList_hash(const char *text, const char *path);
NETSIFT_API int32_t inVirusWhiteList(const char *text);
NETSIFT_API int32_t isDom_vir_wl(const char *database, const char *domain);

NETSIFT_END

#endif
