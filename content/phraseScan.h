/* Weighing a text against the phrase lists.

   A match is opened where a byte begins some phrase, and carried from byte to byte while phrases go on with them. When
   it reaches the end of a phrase, the phrase counts at the position of the byte after it. At most one phrase counts at
   a position, that of the match that began earliest; one that `uniqueoccur` passes over does not take the position.
   The bytes of a text are its positions 1 to length: position 0 begins no phrase, and the NUL at position length lets a
   phrase at the text's end count. */
#ifndef NETSIFT_CONTENT_PHRASESCAN_H
#define NETSIFT_CONTENT_PHRASESCAN_H

#include "content/contentFilter.h"
#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Position of the first entry for that byte; -1 when there is none, and for 0. */
NETSIFT_API int returnIndex(signed char byte, const InitialEntry *index);

/* Adds up in `totalweight`, from 0, the weights of a category's phrases in a text of `length` bytes and a NUL. Returns
   1 at the first phrase that brings it to `allowedweight`, else 0. A null index has no phrases. `category`, from 0,
   names the found table: there the first 20 phrases counted since iniContentFilter are recorded, and with `uniqueoccur`
   those do not count again; later ones still count, each time. Without a table none is recorded. A phrase's first 255
   bytes can be matched. The time per byte depends on the number of open matches, not on the list, when the index is
   buildIniList's; of any other, runs are walked phrase by phrase. */
NETSIFT_API int calcWeight(const char *text, int length, const InitialEntry *index, int category);

/* Number, from 1, of the first category whose score reaches `allowedweight`, with its phrases traced; 0 when none does.
   To be widened as unsigned: there can be 255 categories. Scores are left in `categweight`. An allowedweight of 0 or
   less condemns every text. While `contentinitialised` is not 1 (iniContentFilter failed, or has not been called),
   nothing is scored: the result is 0, whatever the threshold.
   All lists are weighed in one pass, whose time does not depend on them, when they are makePhraseLists' own. Else, and
   when a text could bring more matches of one list than the pool holds, calcWeight weighs them one after the other;
   the result is the same. */
NETSIFT_API signed char isOffensiveContent(const char *text, int length);

NETSIFT_END

#endif
