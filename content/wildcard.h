/* The one wildcard matcher, and the small string tests around it. */
#ifndef NETSIFT_CONTENT_WILDCARD_H
#define NETSIFT_CONTENT_WILDCARD_H

#include "util/api.h"

NETSIFT_BEGIN

/* 1: `text` matches `pattern`, 0: it does not. "*" stands for any run of bytes, everything else for itself. The part
   before the first "*" must begin the text; of each later part the leftmost occurrence is taken and nothing is retried,
   so that "*ab" does not match "abab". The text must be used up, unless the pattern ends with "*". The empty pattern
   matches the empty text.
   A part counts with its first 111 bytes. Lists are written against offsets of 8 bits: a part found 128 to 254 bytes on
   (modulo 256) moves the search back by 256 less that, at most to the text's start; one 255 on counts as not found. */
NETSIFT_API int isMatching(const char *text, const char *pattern);

/* 1: `text` starts with `prefix`, byte for byte; an empty prefix always holds. */
NETSIFT_API int beginsWith(const char *text, const char *prefix);

/* The same without regard to case: for field names. */
NETSIFT_API int beginsWithCI(const char *text, const char *prefix);

/* Offset of the first occurrence of `needle`, folded to a signed byte; -1 when there is none, and at offset 255. */
NETSIFT_API signed char strsearch(const char *text, const char *needle);

/* isMatching with `word` put between "*" wherever it has none at that end. The last byte is looked for at the word's
   length modulo 256. 0 also when a word of more than 250 bytes finds no memory for its pattern. */
NETSIFT_API int contains(const char *text, const char *word);

/* Offset of the first `needle` that lies whole before the first `delimiter`, or before the end when there is no
   delimiter; -1 when there is none. A delimiter of NUL means the whole text. */
NETSIFT_API int containsBeforeDelim(const char *text, const char *needle, char delimiter);

NETSIFT_END

#endif
