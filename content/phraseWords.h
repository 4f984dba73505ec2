/* A list of phrases for pages that are judged by their words: internal to content/. */
#ifndef NETSIFT_CONTENT_PHRASEWORDS_H
#define NETSIFT_CONTENT_PHRASEWORDS_H

#include "state/records.h"

namespace netsift {

/* The list in the form of what it is compared with (normalText.h), in place of the one given, which is released:
   sorted, each phrase once with the weight that the file says first, and none that is all blank; behind them one that
   no text holds, since the last of a list is never found. */
PhraseNode *wordList(PhraseNode *list);

}  // namespace netsift

#endif
