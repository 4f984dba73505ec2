#include "content/contentFilter.h"

#include <cstdlib>
#include <functional>

#include "content/openMatch.h"
#include "log/debugLog.h"
#include "state/observer.h"
#include "state/settings.h"

using netsift::FoundPhrases;
using netsift::matchPool;
using netsift::OpenMatch;
using netsift::poolSize;
using netsift::returnToPool;

namespace {

OpenMatch *pool;

FoundPhrases *foundTables;
int foundCategories;

bool isFromPool(const FifoNode *node) {
  const std::less<const FifoNode *> before;
  return pool != nullptr && !before(node, pool) && before(node, pool + poolSize);
}

bool isRecorded(const FoundPhrases &found, const PhraseNode *phrase) {
  for (int i = 0; i < found.count; i++) {
    if (found.phrases[i] == phrase) return true;
  }
  return false;
}

void releaseFilter() {
  std::free(foundTables);
  foundTables = nullptr;
  foundCategories = 0;
  freeFifo();
  contentinitialised = 0;
}

}  // namespace

namespace netsift {

MatchPool matchPool;

FoundPhrases *foundTable(int category) {
  return category >= 0 && category < foundCategories ? &foundTables[category] : nullptr;
}

bool countPhrase(FoundPhrases *found, const PhraseNode *phrase, int32_t &score) {
  if (found != nullptr) {
    if (uniqueoccur != 0 && isRecorded(*found, phrase)) return false;
    if (found->count < foundLimit) found->phrases[found->count++] = phrase;
  }
  score = static_cast<int32_t>(static_cast<uint32_t>(score) + static_cast<uint32_t>(phrase->weight));
  return true;
}

FoundCounts countFound() {
  if (netsift_observer != nullptr) netsift_observer->marked();
  FoundCounts counts{};
  for (size_t i = 0; i < static_cast<size_t>(foundCategories); i++) counts[i] = foundTables[i].count;
  return counts;
}

void restoreFound(const FoundCounts &counts) {
  if (netsift_observer != nullptr) netsift_observer->dropped();
  for (size_t i = 0; i < static_cast<size_t>(foundCategories); i++) foundTables[i].count = counts[i];
}

void forgetFoundPhrases() {
  for (int i = 0; i < foundCategories; i++) foundTables[i].count = 0;
}

}  // namespace netsift

int iniContentFilter(void) {
  releaseFilter();
  const size_t count = numcategories1;
  foundTables = static_cast<FoundPhrases *>(std::calloc(count + 1, sizeof(FoundPhrases)));
  if (foundTables == nullptr) {
    dprintf(2, "memory allocation failed in iniContentFilter\n");
    return -1;
  }
  foundCategories = static_cast<int>(count);
  contentinitialised = 1;
  if (initialiseFifo() == 1) return 1;
  releaseFilter();
  return -1;
}

void relContentFilter(void) {
  if (contentinitialised == 1) releaseFilter();
}

int initialiseFifo(void) {
  freeFifo();
  pool = static_cast<OpenMatch *>(std::calloc(poolSize, sizeof(OpenMatch)));
  if (pool == nullptr) {
    dprintf(2, "memory allocation failed in initialiseFifo\n");
    return -1;
  }
  for (int i = 0; i < poolSize; i++) returnToPool(&pool[i]);
  queue_count = 0;
  return 1;
}

void freeFifo(void) {
  std::free(pool);
  pool = nullptr;
  matchPool = {};
}

FifoNode *getFromFifo(void) { return netsift::takeFromPool(); }

void releaseToFifo(FifoNode *node) {
  if (isFromPool(node)) returnToPool(node);
}

void releaseAllToFifo(FifoNode *list) {
  while (list != nullptr) {
    FifoNode *next = list->next;
    releaseToFifo(list);
    list = next;
  }
}
