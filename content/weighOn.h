/* Weighing a page that comes in pieces: internal to the library. */
#ifndef NETSIFT_CONTENT_WEIGHON_H
#define NETSIFT_CONTENT_WEIGHON_H

#include <cstdint>

#include "content/phraseAutomaton.h"

namespace netsift {

/* Goes on with a page's `scores`, one for each of numcategories1, and answers as isOffensiveContent does, which is this
   with scores of 0. Of the text's bytes the first `weighed` are the last of what was weighed before: what ends among
   them has been counted, what ends behind them is counted now. matchedLimit of them are enough. */
int weighOn(const char *text, int length, int weighed, int32_t (&scores)[maxPhraseCategories]);

}  // namespace netsift

#endif
