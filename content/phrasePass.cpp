#include "content/phrasePass.h"

#include <algorithm>

#include "content/openMatch.h"
#include "state/settings.h"
#include "state/strict.h"

namespace netsift {
namespace {

constexpr size_t endedLimit = 64;

/* A match that ended early: it stayed at the end of a phrase, since a longer one was counted there, and a byte below NUL
   followed. Phrases that go on from there are whole only in the text. */
struct EndedMatch {
  uint32_t start;
  int category;
};

struct Pass {
  const PhraseAutomaton *automaton;
  const char *text;
  uint32_t weighed; /* bytes of it, at which nothing is counted any more */
  int32_t scores[maxPhraseCategories];
  int all;        /* categories */
  int categories; /* the first ones, that still have to be weighed: one that has reached the threshold ends the list */
  FoundPhrases *found[maxPhraseCategories]; /* null: phrases are not recorded */
  uint8_t foundBefore[maxPhraseCategories];
  uint32_t countedAt[maxPhraseCategories]; /* the position at which a phrase was counted last */
  EndedMatch ended[endedLimit];            /* those whose phrases could still be met */
  size_t endedCount;
};

bool poolIsFull() {
  int count = 0;
  for (const FifoNode *node = matchPool.head; node != nullptr; node = node->next) count++;
  return count == poolSize;
}

void startPass(Pass &pass) {
  for (int i = 0; i < pass.all; i++) {
    pass.countedAt[i] = 0;
    pass.found[i] = foundTable(i);
    if (pass.found[i] != nullptr) pass.foundBefore[i] = pass.found[i]->count;
  }
}

/* Takes back what has been recorded from a category on. */
void forgetFrom(const Pass &pass, int category) {
  for (int i = category; i < pass.all; i++) {
    if (pass.found[i] != nullptr) pass.found[i]->count = pass.foundBefore[i];
  }
}

bool hasEnded(const Pass &pass, int category, uint32_t start) {
  const auto isSame = [&](const EndedMatch &match) { return match.start == start && match.category == category; };
  return std::any_of(pass.ended, pass.ended + pass.endedCount, isSame);
}

/* False when there are too many. */
bool endMatch(Pass &pass, int category, uint32_t start, uint32_t position) {
  const auto isPast = [&](const EndedMatch &match) { return position - match.start > matchedLimit; };
  const EndedMatch *end = std::remove_if(pass.ended, pass.ended + pass.endedCount, isPast);
  pass.endedCount = static_cast<size_t>(end - pass.ended);
  if (pass.endedCount == endedLimit) return false;
  pass.ended[pass.endedCount++] = {start, category};
  return true;
}

/* Counts the first phrase of each category, the longest, that is whole at a position. False when only the scan of each
   list can say. */
bool countHit(Pass &pass, const Hit &hit) {
  const PhraseAutomaton &automaton = *pass.automaton;
  const bool beforeLowByte = !matchesWords() && static_cast<signed char>(pass.text[hit.position]) < 0;
  uint32_t next = automaton.firstOutputs[hit.state];
  if (next == crowded) return false;
  if (hit.position <= pass.weighed) return true;
  for (const PhraseOutput *output; next != 0; next = output->next) {
    output = &automaton.outputs[next];
    const int category = output->category;
    const uint32_t start = hit.position - output->length;
    if (category >= pass.categories || hasEnded(pass, category, start)) continue;
    if (pass.countedAt[category] == hit.position) {
      if (output->hides && beforeLowByte && !endMatch(pass, category, start, hit.position)) return false;
      continue;
    }
    if (!countPhrase(pass.found[category], output->phrase, pass.scores[category])) continue;
    pass.countedAt[category] = hit.position;
    if (pass.scores[category] >= allowedweight) pass.categories = category;
  }
  return true;
}

bool countHits(Pass &pass, const TextStream &stream) {
  for (uint32_t i = stream.firstHit; i < stream.hitCount && pass.categories > 0; i++) {
    if (!countHit(pass, stream.hits[i])) return false;
  }
  return true;
}

bool countAll(Pass &pass, TextRun &run) {
  while (pass.categories > 0 && readOn(run)) {
    for (const TextStream &stream : run.streams) {
      if (!countHits(pass, stream)) return false;
    }
  }
  return true;
}

}  // namespace

bool weighInOnePass(const char *text, int length, int weighed, int32_t (&scores)[maxPhraseCategories]) {
  const PhraseAutomaton *automaton = findPhraseAutomaton();
  if (automaton == nullptr || !poolIsFull()) return false;
  Pass pass;
  pass.automaton = automaton;
  pass.text = text;
  pass.weighed = static_cast<uint32_t>(weighed);
  pass.all = pass.categories = numcategories1;
  std::copy_n(scores, pass.all, pass.scores);
  pass.endedCount = 0;
  startPass(pass);

  TextRun run; /* too large to be cleared */
  run.automaton = automaton;
  run.text = text;
  run.at = 1; /* the byte at 0 begins no phrase */
  run.end = length > 1 ? static_cast<uint32_t>(length) : 1;
  run.step = 0;
  if (!countAll(pass, run)) {
    forgetFrom(pass, 0);
    return false;
  }
  std::copy_n(pass.scores, pass.all, scores);
  int decided = 0;
  while (decided < pass.categories && scores[decided] < allowedweight) decided++;
  forgetFrom(pass, decided + 1);
  return true;
}

}  // namespace netsift
