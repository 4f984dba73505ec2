/* Verdicts on disk, by URL and modification date: a GDBM database that all connections share. It is opened and closed
   for every operation, and its own file locking decides collisions: a look-up during somebody's write is a miss, a
   write during any other use is lost. This side never creates the file: the host does, before it serves. A file that
   is cut short or filled with something else fails like a missing one; so does an empty one until the next store.

   A record's key is the URL with its terminating zero byte, of at most 256 characters. Its value is three decimal
   numbers run together, again with a zero byte: modification date, time of writing, and the verdict as its last digit:
   0 clean, 1 infected, 2 otherwise blocked. */
#ifndef NETSIFT_CACHE_DBCACHE_H
#define NETSIFT_CACHE_DBCACHE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Seconds since the epoch of an HTTP date ("Sun, 06 Nov 1994 08:49:37 GMT", RFC 9110 5.6.7) read as local standard
   time, cut to 32 bits. Only equality means something: the same text gives the same number in every process of a
   machine, whatever was converted before and whether daylight saving time holds. A text that is no such date counts up
   to where it stops being one ("UTC" for "GMT" makes no difference). 0 for a null date. */
NETSIFT_API int32_t convertTimeToEpoch(const char *date);

/* The verdict stored for the URL, 0, 1 or 2, when its page still has that modification date; -1 when it is not there or
   cannot be read, has another date or an unknown verdict, and for a null argument (a page without a date). */
NETSIFT_API int32_t if_url_scanned_check_ok(const char *url, const char *date);

/* Stores or replaces the URL's verdict: 1, or -1 when that fails or an argument is null. With CacheMaxEntries, others
   may go for it. */
NETSIFT_API int32_t addto_urlcache_db(const char *url, const char *date, int flag);

/* The value stored under the key, terminated, which the caller frees; null when there is none, the key has more than
   256 characters, or the database does not open. */
NETSIFT_API char *SearchTok(const char *key, const char *database);

/* Stores or replaces: 1; -1 when the database does not open, the store fails or the key has more than 256
   characters. */
NETSIFT_API int InsertTok(const char *key, const char *value, const char *database);

/* Deletes the record whose key is the text without a zero byte: 0 when deleted, -1 when not found. Records of InsertTok
   have the zero byte in their key and are never found; this is for keys that other programs wrote. Also 0 for a key of
   more than 256 characters and for a database that does not open. */
NETSIFT_API int UpdateDB(const char *key, const char *database);

/* Prints all records to standard error: 1; 0 when the database does not open. */
NETSIFT_API int DumpDB(const char *database);

NETSIFT_END

#endif
