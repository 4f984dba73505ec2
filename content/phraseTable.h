/* Look-up tables behind a phrase index, so that a scan never walks through a run of phrases: internal to content/.

   The walk that extends a match goes over a range of phrases that agree in their first bytes, stops at the first
   phrase whose next byte is greater than the text's, and takes the first stretch whose next byte equals it. Whatever
   order the phrases stand in, the stretches it can ever take are those whose byte exceeds every byte before them, so a
   range is described by these alone and the walk becomes one look-up, for unsorted files too. */
#ifndef NETSIFT_CONTENT_PHRASETABLE_H
#define NETSIFT_CONTENT_PHRASETABLE_H

#include <cstddef>
#include <span>

#include "state/records.h"

namespace netsift {

constexpr int phraseIndexLimit = 255; /* runs in an index: their count has 8 bits */
constexpr int matchedLimit = 255;     /* bytes of an open match: their count has 8 bits */

struct PhraseGroup;

/* Consecutive phrases that agree in as many bytes as a match that stands at them has matched. */
struct PhraseRange {
  PhraseNode *first, *end;  /* end: exclusive; first null: no phrase */
  const PhraseGroup *group; /* null for a single phrase, which is compared directly */
};

/* Where a range of two phrases or more goes on at each next byte. */
struct PhraseGroup {
  const PhraseNode *first;
  const signed char *bytes;  /* `count` bytes, ascending, none of them NUL, */
  const PhraseRange *ranges; /* and the range that each of them leads to */
  uint64_t mask;             /* a bit for each of the bytes, by its low 6 bits: spares most searches that would fail */
  uint8_t count;
  bool firstIsWhole; /* the first phrase has no next byte; the look-up starts after it */
};

struct PhraseTable {
  uint32_t serial;              /* of the index, among all that this process has built; not 0 */
  PhraseRange byFirstByte[256]; /* by the byte as unsigned */
  uint32_t thirds[32 * 32]; /* by the low 5 bits of a first and a second byte, a bit for the low 5 bits of each third
                               at which a match of them still counts or goes on; all bits where the third does not
                               matter */
};

inline uint64_t maskBit(signed char byte) { return uint64_t{1} << (byte & 63); }

/* Shifts a text's byte into the 5 bits each of its last three. */
inline unsigned slide(unsigned window, char byte) { return (window << 5 | (byte & 31)) & 0x7fff; }

/* Bytes that the tables of these runs take when they follow the index in its allocation. */
size_t phraseTableSize(std::span<const InitialEntry> runs);

/* Writes the tables behind the index's terminating entry, where phraseTableSize() bytes must be free, and notes in the
   otherwise unused pointers of that entry that they are there. */
void writePhraseTable(InitialEntry *index, size_t runs);

/* The tables of an index; null when it was put together by hand (or copied): then its runs are walked. The pointers of
   such an index's terminating entry must not be left over from one that buildIniList made. */
const PhraseTable *findPhraseTable(const InitialEntry *index);

/* Entries that phraselists, initiallists and categweight have, when they are there: as many as makePhraseLists made,
   for arrays of the host's own numcategories1. */
int phraseSlots();

/* Whether those arrays are makePhraseLists' own. */
bool listsAreMade();

/* Notes the array that makePhraseLists has put into phraselists, and its entries, whatever becomes of the counts and
   pointers that the host sees; null when there is none any more. */
void noteMadeLists(PhraseNode **lists, int slots);

/* An entry of a host's array of names; "" where there is none. */
inline const char *nameAt(char **names, int position) {
  return names == nullptr || names[position] == nullptr ? "" : names[position];
}

}  // namespace netsift

#endif
