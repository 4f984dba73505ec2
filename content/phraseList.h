/* Weighted phrase lists: loading and indexing.

   One file a category, <name>.phrase in the configuration folder, a sequence of records: an opening byte (by habit "<",
   skipped whatever it is), the phrase up to the next ">", a decimal weight, optionally signed, and any white space. A
   phrase has at most 126 bytes, a longer one is cut; one that begins and ends with a double quote has both replaced by
   blanks. An empty phrase is a record like any other that no text holds; a missing weight is 0; a weight beyond 32 bits
   wraps.

   A file must be sorted by its phrases, bytes compared as signed characters, a phrase's end as 0 (so that 0x80 to 0xFF
   come first, and "a\xE9" before "a"). Lists keep the file's order, and what is out of order is not found.

   With CONTENT_WORDS makePhraseLists brings each list into the form of the words that it is compared with, so that a
   file's order does not matter and its last phrase is found. */
#ifndef NETSIFT_CONTENT_PHRASELIST_H
#define NETSIFT_CONTENT_PHRASELIST_H

#include <stdio.h>

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Loads `numcategories1` categories from `categfiles1` into phraselists, initiallists and categweight, in place of what
   an earlier call made. 1: loaded. -1: a file could not be read, or holds no record or a broken one. 0: out of memory.
   After a failure freePhraseLists releases what was loaded. For isOffensiveContent all lists together are made into one
   automaton too, of at most 100 bytes a phrase byte; when there is no room for it, pages take longer. Nothing of lists
   and automaton is written to later, so that forked processes share them.
   A file that is missing or of size 0 leaves its slot without phrases and takes one off numcategories1, so that it is
   the last category that no scan looks at any more. */
NETSIFT_API int makePhraseLists(void);

/* Releases lists, indexes and the per-category arrays, all that makePhraseLists made however numcategories1 has shrunk,
   and the pool of open matches; empties the found tables, which refer to the phrases. Safe at any time. */
NETSIFT_API void freePhraseLists(void);

/* The list of <name>.phrase, to be released by freeList. Null, with a trace, when the file cannot be opened, ends
   inside a phrase, or memory runs out: a list is loaded whole or not at all. Null also when it holds no record. */
NETSIFT_API PhraseNode *buildList(const char *name);

/* The next record of a phrase file. Null at the end of the file, when the file ends inside a phrase
   (level-1 trace) and when memory runs out. */
NETSIFT_API PhraseNode *readPhrase(FILE *stream);

/* The list as it is: files come sorted. */
NETSIFT_API PhraseNode *sortList(PhraseNode *list);

/* The index of a list by first byte, to be released by free(), and before the list; null when memory runs out. A run
   ends where the next begins; the last run ends at the list's last phrase and leaves it out, so that the last phrase of
   a file is found only when it is a single byte that no other phrase begins with. An index holds at most 255 runs,
   later ones are left out. Phrases must not change while the index is in use; weights may. */
NETSIFT_API InitialEntry *buildIniList(PhraseNode *list);

NETSIFT_API void freeList(PhraseNode *list);

NETSIFT_END

#endif
