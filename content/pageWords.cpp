#include "content/pageWords.h"

#include <algorithm>

#include "content/openMatch.h"
#include "content/weighOn.h"
#include "content/wildcardMatch.h"
#include "state/observer.h"
#include "state/settings.h"

namespace netsift {
namespace {

/* A text is weighed behind a byte that begins no phrase and the last bytes of what was weighed before. */
constexpr size_t keptLength = matchedLimit + 1;

void openReading(PageWords &words, const std::string &charset) {
  PageReading &reading = words.readings.emplace_back();
  reading.decoder = openDecoder(charset);
  reading.page.kind = kindOf(words.type);
  for (NormalText *normal : {&reading.page.shown, &reading.page.beside}) normal->text = std::string(1, '\0') + " ";
}

/* One where the bytes can only be read one way; with two, each has scores of its own. */
void openReadings(PageWords &words) {
  size_t mark = 0;
  const std::string charset = charsetOf(words.start, words.charset, mark);
  words.start.erase(0, mark);
  openReading(words, charset);
  if (mark == 0 && isDoubtful(charset)) openReading(words, "");
}

int weighText(PageScores &scores, const std::string &text, size_t settled, size_t &weighed) {
  if (settled <= weighed) return 0;
  const int category = weighOn(text.c_str(), static_cast<int>(settled), static_cast<int>(weighed), scores);
  weighed = settled;
  return category;
}

/* What is settled, or, when the page ends here, all of it. */
int weighTexts(PageScores &scores, const PageText &page, bool isEnd, size_t &shownWeighed, size_t &besideWeighed) {
  const auto settled = [&](const NormalText &normal) { return isEnd ? normal.text.size() : settledLength(normal); };
  const int category = weighText(scores, page.shown.text, settled(page.shown), shownWeighed);
  return category != 0 ? category : weighText(scores, page.beside.text, settled(page.beside), besideWeighed);
}

void forgetWeighed(NormalText &normal, size_t &weighed) {
  if (weighed <= 2 * keptLength) return;
  normal.text.erase(1, weighed - keptLength); /* the first byte stays the one that begins no phrase */
  weighed = keptLength;
}

/* Whether what is not settled yet would condemn the page, were this its end. Nothing of it is kept. */
int judgeAsEnd(const PageReading &reading) {
  PageText page = reading.page;
  endPage(page);
  size_t shownWeighed = reading.shownWeighed, besideWeighed = reading.besideWeighed;
  PageScores scores;
  std::copy_n(reading.scores, maxPhraseCategories, scores);
  const FoundCounts counts = countFound();
  const int category = weighTexts(scores, page, true, shownWeighed, besideWeighed);
  restoreFound(counts);
  return category;
}

int judgeReading(PageReading &reading, std::string_view bytes, bool isLast) {
  std::string characters;
  decodeText(reading.decoder, bytes, isLast, characters);
  readPage(reading.page, characters);
  if (isLast) endPage(reading.page);
  const int category = weighTexts(reading.scores, reading.page, isLast, reading.shownWeighed, reading.besideWeighed);
  forgetWeighed(reading.page.shown, reading.shownWeighed);
  forgetWeighed(reading.page.beside, reading.besideWeighed);
  return category;
}

int judgeReadings(PageWords &words, std::string_view bytes, bool isLast) {
  for (PageReading &reading : words.readings) {
    if (netsift_observer != nullptr) netsift_observer->reading(static_cast<int>(&reading - words.readings.data()));
    const int category = judgeReading(reading, bytes, isLast);
    if (category != 0) return category;
    if (words.atEnd == 0 && !isLast) words.atEnd = judgeAsEnd(reading);
  }
  return 0;
}

}  // namespace

bool isJudgedType(std::string_view type) {
  if (kindOf(type) == TextKind::unknown) return true;
  for (const auto &judged : JudgedTypes) {
    if (judged[0] == '\0') return false;
    if (matchesPattern(type, judged)) return true;
  }
  return false;
}

int judgeWords(PageWords &words, std::string_view bytes, bool isLast) {
  words.atEnd = 0;
  if (words.readings.empty()) {
    words.start.append(bytes);
    if (words.start.size() < namingLength && !isLast) {
      PageWords sofar{words.type, words.charset, words.start, {}};
      openReadings(sofar);
      const FoundCounts counts = countFound();
      const int category = judgeReadings(sofar, sofar.start, false);
      if (category == 0) restoreFound(counts);
      words.atEnd = sofar.atEnd;
      return category;
    }
    openReadings(words);
    bytes = words.start;
  }
  const int category = judgeReadings(words, bytes, isLast);
  words.start.clear();
  return category;
}

}  // namespace netsift
