/* The words of a page, judged as it arrives: what its bytes say, in whatever charset and markup, against the phrases.

   However a page is divided, and however long it is, each phrase in it counts once for each time that it occurs, and
   the scores go on from its first byte to its last. Internal to the library. */
#ifndef NETSIFT_CONTENT_PAGEWORDS_H
#define NETSIFT_CONTENT_PAGEWORDS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "content/charset.h"
#include "content/pageText.h"
#include "content/phraseAutomaton.h"

namespace netsift {

using PageScores = int32_t[maxPhraseCategories];

/* One way to read a page's bytes. */
struct PageReading {
  Decoder decoder;
  PageText page;
  size_t shownWeighed = 0, besideWeighed = 0; /* bytes at the front of its texts whose phrases have been counted */
  PageScores scores = {};
};

/* Lives for one page. */
struct PageWords {
  std::string type, charset; /* as the answer's head names them, "" where it does not */
  std::string start;         /* the first bytes, until they are enough to say what they are written in */
  std::vector<PageReading> readings;
  int atEnd = 0; /* the category that would condemn the page if it ended here, where a word or character is open */
};

/* Whether a type, without parameters and in small letters, is one of JudgedTypes, or none that says anything. */
bool isJudgedType(std::string_view type);

/* Reads on and weighs what can be told so far. The number, from 1, of a category whose score reaches the threshold,
   whatever follows; 0 when there is none: `atEnd` then says what would be if nothing did. The phrase filter must have
   been made ready for this page (iniContentFilter) and for no other since. `isLast`: nothing follows. */
int judgeWords(PageWords &words, std::string_view bytes, bool isLast);

}  // namespace netsift

#endif
