/* Weighted phrase lists: loading and indexing. */
#ifndef NETSIFT_CONTENT_PHRASELIST_H
#define NETSIFT_CONTENT_PHRASELIST_H

#include <stdio.h>

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int makePhraseLists(void);
NETSIFT_API void freePhraseLists(void);
NETSIFT_API PhraseNode *buildList(const char *name);
NETSIFT_API PhraseNode *readPhrase(FILE *stream);
NETSIFT_API PhraseNode *sortList(PhraseNode *list);
NETSIFT_API InitialEntry *buildIniList(PhraseNode *list);
NETSIFT_API void freeList(PhraseNode *list);

NETSIFT_END

#endif
