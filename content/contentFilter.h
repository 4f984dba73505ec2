/* What the weighing of one page needs: the pool of open matches, and for each category a table of the phrases found. */
#ifndef NETSIFT_CONTENT_CONTENTFILTER_H
#define NETSIFT_CONTENT_CONTENTFILTER_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* An open match: the candidate's first `matched` bytes are the last bytes of the text, and those of every phrase from
   it up to `end` (exclusive) too. */
typedef struct FifoNode {
  PhraseNode *candidate, *end;
  uint8_t matched;
  struct FifoNode *next;
} FifoNode;

/* Makes empty found tables of numcategories1 categories and a full pool for one page, in place of an earlier call's.
   1; -1 when memory runs out: then nothing is left made, and nothing is found. */
NETSIFT_API int iniContentFilter(void);

/* Releases them when `contentinitialised` is 1. */
NETSIFT_API void relContentFilter(void);

/* The pool holds 30 matches. While it is empty, matches are not opened. */

/* Makes the pool full, in place of an earlier one. 1, or -1 when memory runs out. */
NETSIFT_API int initialiseFifo(void);
NETSIFT_API void freeFifo(void);

/* The match released longest ago; null when the pool is empty or there is none. It stays the pool's. */
NETSIFT_API FifoNode *getFromFifo(void);

/* Takes back a match that getFromFifo gave out; one that is not the pool's is ignored. */
NETSIFT_API void releaseToFifo(FifoNode *node);

/* The same for each match of a list. */
NETSIFT_API void releaseAllToFifo(FifoNode *list);

NETSIFT_END

#endif
