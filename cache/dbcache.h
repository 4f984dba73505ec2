/* Verdicts on disk, by URL and modification date. */
#ifndef NETSIFT_CACHE_DBCACHE_H
#define NETSIFT_CACHE_DBCACHE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t convertTimeToEpoch(const char *date);
NETSIFT_API int32_t if_url_scanned_check_ok(const char *url, const char *date);
NETSIFT_API int32_t addto_urlcache_db(const char *url, const char *date, int flag);
NETSIFT_API char *SearchTok(const char *key, const char *database);
NETSIFT_API int InsertTok(const char *key, const char *value, const char *database);
NETSIFT_API int UpdateDB(const char *key, const char *database);
NETSIFT_API int DumpDB(const char *database);

NETSIFT_END

#endif
