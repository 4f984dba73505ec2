/* Open matches and the phrases found so far, as the scans of one page use them: internal to content/. */
#ifndef NETSIFT_CONTENT_OPENMATCH_H
#define NETSIFT_CONTENT_OPENMATCH_H

#include <array>

#include "content/contentFilter.h"
#include "content/phraseTable.h"

namespace netsift {

constexpr int poolSize = 30;
constexpr int foundLimit = 20;

/* What the pool is made of: an open match, and what its range leads to (null: its range is walked). */
struct OpenMatch : FifoNode {
  const PhraseGroup *group;
};

/* The matches that are not open, the one released longest ago first. */
struct MatchPool {
  FifoNode *head, *tail;
};

extern MatchPool matchPool;

inline FifoNode *takeFromPool() {
  FifoNode *node = matchPool.head;
  if (node == nullptr) return nullptr;
  matchPool.head = node->next;
  if (matchPool.head == nullptr) matchPool.tail = nullptr;
  node->next = nullptr;
  return node;
}

inline void returnToPool(FifoNode *node) {
  node->next = nullptr;
  (matchPool.tail == nullptr ? matchPool.head : matchPool.tail->next) = node;
  matchPool.tail = node;
}

/* The phrases of one category counted so far. */
struct FoundPhrases {
  const PhraseNode *phrases[foundLimit];
  uint8_t count;
};

/* Adds a phrase's weight to a score and records it, if there is a table; false when it is to count once and has been
   counted before. */
bool countPhrase(FoundPhrases *found, const PhraseNode *phrase, int32_t &score);

/* A category's, from 0; null when there is none. */
FoundPhrases *foundTable(int category);

/* How many phrases each table holds; and those tables with what was recorded since taken back. */
using FoundCounts = std::array<uint8_t, 255>;
FoundCounts countFound();
void restoreFound(const FoundCounts &counts);

/* Empties the found tables: their phrases are about to be released. */
void forgetFoundPhrases();

}  // namespace netsift

#endif
