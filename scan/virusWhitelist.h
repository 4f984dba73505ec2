/* What is never scanned: by host and by content type. The lists are short text files that are read anew at every
   question, so that an edit holds from the next response on. */
#ifndef NETSIFT_SCAN_VIRUSWHITELIST_H
#define NETSIFT_SCAN_VIRUSWHITELIST_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* 1 when an entry of the whitelist file occurs anywhere in `text`, else 0. One entry a line; white space around it does
   not count, an entry of nothing else matches every text. A line of more than 255 bytes is read as several, and a last
   line without its line end is not read. Two kinds of line act while the file is read, on what came before them and
   with their own line end as part of the text: "?<entry>" prints its value to standard output, "-<entry>" removes it.
   An entry's value is the number of distinct entries stored before it, plus one for each repetition.
   A file that cannot be opened is empty, silently; reading also stops at a read error. A null text matches nothing. */
NETSIFT_API int32_t inVirusWhiteList_hash(const char *text, const char *path);

/* 1 when a text of the table `viruswhitelist` occurs anywhere in `text` (null: in nothing), else 0; the first empty
   slot ends the table. */
NETSIFT_API int32_t inVirusWhiteList(const char *text);

/* 1 when a key of the GDBM database occurs anywhere in `domain`, else 0, also for a database that does not open (or is
   being written). Keys are taken up to their first zero byte; the walk ends at the first match. */
NETSIFT_API int32_t isDom_vir_wl(const char *database, const char *domain);

NETSIFT_END

#endif
