/* Weighing a text against the phrase lists in one pass per category. */
#ifndef NETSIFT_CONTENT_PHRASESCAN_H
#define NETSIFT_CONTENT_PHRASESCAN_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

typedef struct FifoNode {
  PhraseNode *candidate, *end;
  uint8_t matched;
  struct FifoNode *next;
} FifoNode;

NETSIFT_API int returnIndex(signed char byte, const InitialEntry *index);
NETSIFT_API int iniContentFilter(void);
NETSIFT_API void relContentFilter(void);
NETSIFT_API int initialiseFifo(void);
NETSIFT_API void freeFifo(void);
NETSIFT_API FifoNode *getFromFifo(void);
NETSIFT_API void releaseToFifo(FifoNode *node);
NETSIFT_API void releaseAllToFifo(FifoNode *list);
NETSIFT_API int calcWeight(const char *text, int length, const InitialEntry *index, int category);
NETSIFT_API signed char isOffensiveContent(const char *text, int length);

NETSIFT_END

#endif
