#include "content/phraseScan.h"

#include <algorithm>
#include <cstring>

#include "content/openMatch.h"
#include "content/phrasePass.h"
#include "content/phraseTable.h"
#include "content/weighOn.h"
#include "log/debugLog.h"
#include "state/observer.h"
#include "state/settings.h"
#include "state/strict.h"

using netsift::countPhrase;
using netsift::FoundPhrases;
using netsift::matchedLimit;
using netsift::matchPool;
using netsift::OpenMatch;
using netsift::PhraseGroup;
using netsift::PhraseRange;
using netsift::PhraseTable;
using netsift::returnToPool;
using netsift::slide;
using netsift::takeFromPool;

namespace {

struct Scan {
  const InitialEntry *index;
  const PhraseTable *table;
  FoundPhrases *found; /* null: phrases are not recorded */
  const char *text;
  int category;
  ptrdiff_t weighed; /* bytes of the text, at whose ends phrases have been counted before */
  FifoNode *open;    /* open matches, the earliest start first */
  FifoNode **openEnd;
};

/* Takes the first stretch of the range that goes on with `byte`, up to the first phrase that sorts after it. The end of
   a phrase does not equal a NUL of the text. */
bool extendByWalk(OpenMatch &match, signed char byte) {
  const auto byteOf = [&](const PhraseNode *node) { return static_cast<signed char>(node->phrase[match.matched]); };
  const auto ended = [&](const PhraseNode *node) { return node == match.end || node == nullptr; };
  PhraseNode *node = match.candidate;
  if (byte == 0) return false;
  while (!ended(node) && byteOf(node) < byte) node = node->next;
  if (ended(node) || byteOf(node) != byte) return false;

  match.candidate = node;
  while (!ended(node) && byteOf(node) == byte) node = node->next;
  match.end = node;
  match.matched++;
  return true;
}

/* What extendByWalk would find, looked up. A phrase that stays though it is whole (another was counted at this
   position) sorts before every byte below NUL, and hides them; not so while words are matched, whose bytes most such
   are. */
bool extendByTable(OpenMatch &match, signed char byte) {
  const PhraseGroup &group = *match.group;
  if ((group.mask & netsift::maskBit(byte)) == 0) return false;
  if (byte < 0 && group.firstIsWhole && match.candidate == group.first && !netsift::matchesWords()) return false;
  const signed char *found = group.bytes;
  if (group.count > 1) found = static_cast<const signed char *>(std::memchr(found, byte, group.count));
  if (found == nullptr || *found != byte) return false;
  const PhraseRange &range = group.ranges[found - group.bytes];
  match.candidate = range.first;
  match.end = range.end;
  match.group = range.group;
  match.matched++;
  return true;
}

bool extend(OpenMatch &match, signed char byte) {
  if (match.matched == matchedLimit) return false;
  return match.group == nullptr ? extendByWalk(match, byte) : extendByTable(match, byte);
}

/* The group says it without a look at the phrase. */
bool isWhole(const OpenMatch &match) {
  return match.group != nullptr ? match.group->firstIsWhole : match.candidate->phrase[match.matched] == '\0';
}

bool count(const Scan &scan, const PhraseNode *phrase, ptrdiff_t i) {
  if (!countPhrase(scan.found, phrase, totalweight)) return false;
  if (netsift_observer != nullptr)
    netsift_observer->counted(scan.category, phrase->phrase, phrase->weight, scan.text, static_cast<int>(i));
  return true;
}

/* Counts what the bytes before `i` have completed and carries the open matches over `byte`. True when a count has
   brought the score to the threshold. */
bool advance(Scan &scan, signed char byte, ptrdiff_t i) {
  bool counted = false;
  FifoNode **link = &scan.open;
  while (FifoNode *node = *link) {
    auto &match = static_cast<OpenMatch &>(*node);
    if (!counted && isWhole(match)) {
      counted = i <= scan.weighed || count(scan, match.candidate, i);
      if (counted && totalweight >= allowedweight) return true;
      match.candidate = match.candidate->next;
    }
    if (extend(match, byte)) {
      link = &node->next;
    } else {
      *link = node->next;
      returnToPool(node);
    }
  }
  scan.openEnd = link;
  return false;
}

/* The phrases that begin with this byte. */
PhraseRange rangeOf(const Scan &scan, signed char byte) {
  if (scan.table != nullptr) return scan.table->byFirstByte[static_cast<uint8_t>(byte)];
  const int entry = returnIndex(byte, scan.index);
  if (entry == -1) return {};
  return {scan.index[entry].first, scan.index[entry].end, nullptr};
}

/* A match that cannot get past the two bytes after it would be open at one more position and count nothing: while the
   pool holds two, leaving it out keeps no other match from opening. */
bool poolHoldsTwo() { return matchPool.head != nullptr && matchPool.head->next != nullptr; }

bool isWorthOpening(const PhraseTable &table, const char *text, ptrdiff_t i, ptrdiff_t length) {
  const uint32_t thirds = table.thirds[slide(slide(0, text[i]), text[i + 1])];
  return poolHoldsTwo() && i + 2 <= length ? (thirds >> (text[i + 2] & 31) & 1) != 0 : thirds != 0;
}

/* While no match is open: the first position from `i` on where one is worth opening, at most length - 1. */
ptrdiff_t nextOpening(const PhraseTable &table, const char *text, ptrdiff_t i, ptrdiff_t length) {
  if (!poolHoldsTwo() || i == length) return i;
  unsigned window = slide(slide(0, text[i]), text[i + 1]);
  for (; i + 2 <= length; i++) {
    window = slide(window, text[i + 2]);
    if ((table.thirds[window >> 5] >> (window & 31) & 1) != 0) break;
  }
  return i;
}

void openMatch(Scan &scan, char byte) {
  const PhraseRange range = rangeOf(scan, static_cast<signed char>(byte));
  if (range.first == nullptr) return;
  FifoNode *node = takeFromPool();
  if (node == nullptr) return;
  node->candidate = range.first;
  node->end = range.end;
  node->matched = 1;
  static_cast<OpenMatch *>(node)->group = range.group;
  *scan.openEnd = node;
  scan.openEnd = &node->next;
}

}  // namespace

int returnIndex(signed char byte, const InitialEntry *index) {
  for (int i = 0; index[i].firstByte != 0; i++) {
    if (index[i].firstByte == byte) return i;
  }
  return -1;
}

namespace {

/* Adds to totalweight what ends behind the first `weighed` bytes. */
bool weighList(const char *text, int length, int weighed, const InitialEntry *index, int category) {
  if (index == nullptr) return false;
  Scan scan{index,  netsift::findPhraseTable(index), netsift::foundTable(category), text, category, weighed, nullptr,
            nullptr};
  scan.openEnd = &scan.open;

  bool reached = false;
  for (ptrdiff_t i = 1; i <= length; i++) {
    if (scan.open != nullptr) {
      reached = advance(scan, static_cast<signed char>(text[i]), i);
    } else if (scan.table != nullptr) {
      i = nextOpening(*scan.table, text, i, length);
    }
    if (reached || i == length) break;
    if (scan.table == nullptr || isWorthOpening(*scan.table, text, i, length)) openMatch(scan, text[i]);
  }
  releaseAllToFifo(scan.open);
  return reached;
}

}  // namespace

int calcWeight(const char *text, int length, const InitialEntry *index, int category) {
  totalweight = 0;
  return weighList(text, length, 0, index, category) ? 1 : 0;
}

int netsift::weighOn(const char *text, int length, int weighed, int32_t (&scores)[maxPhraseCategories]) {
  if (contentinitialised != 1) return 0;
  const int slots = netsift::phraseSlots();
  const bool inOnePass = netsift_observer == nullptr && netsift::weighInOnePass(text, length, weighed, scores);
  for (int i = 0; i < numcategories1; i++) {
    totalweight = scores[i];
    if (!inOnePass) {
      weighList(text, length, weighed, initiallists == nullptr || i >= slots ? nullptr : initiallists[i], i);
    }
    const int32_t score = scores[i] = totalweight;
    if (categweight != nullptr && i < slots) categweight[i] = score;
    if (netsift_observer != nullptr) netsift_observer->scored(i, score);
    dprintf(7, " weight = %d tot weight = %d allowed = %d\n", score, totalweight, allowedweight);
    if (score >= allowedweight) {
      const FoundPhrases *found = netsift::foundTable(i);
      for (int k = 0; found != nullptr && k < found->count; k++) dprintf(4, "%s\n", found->phrases[k]->phrase);
      return i + 1;
    }
    dprintf(2, " %s weight %d\n", nameAt(categname1, i), score);
  }
  return 0;
}

signed char isOffensiveContent(const char *text, int length) {
  int32_t scores[netsift::maxPhraseCategories];
  std::fill_n(scores, numcategories1, 0);
  return static_cast<signed char>(netsift::weighOn(text, length, 0, scores));
}
