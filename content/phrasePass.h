/* Weighing a text for all categories in one pass: internal to content/. */
#ifndef NETSIFT_CONTENT_PHRASEPASS_H
#define NETSIFT_CONTENT_PHRASEPASS_H

#include <cstdint>

#include "content/phraseAutomaton.h"

namespace netsift {

/* Weighs a text as calcWeight would, category after category, up to the first whose score reaches the threshold, and
   adds to their `scores`; the found tables of later ones are as they were. What ends among the first `weighed` bytes
   has been counted before. False, with the found tables and scores as they were, when only the scan of each list can
   say: the lists have no automaton, or the pool is not full to begin with or could run out of matches. */
bool weighInOnePass(const char *text, int length, int weighed, int32_t (&scores)[maxPhraseCategories]);

}  // namespace netsift

#endif
