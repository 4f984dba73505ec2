#include "content/wildcard.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "content/wildcardMatch.h"
#include "util/ownedText.h"

namespace {

constexpr size_t maxRun = 111;       /* bytes of a literal run that count */
constexpr size_t maxStackWord = 250; /* longest word whose pattern `contains` builds on the stack */
constexpr signed char notFound = -1;

signed char foldedOffset(std::string_view text, const char *needle, size_t needleLength) {
  const void *found = memmem(text.data(), text.size(), needle, needleLength);
  if (found == nullptr) return notFound;
  return static_cast<signed char>(static_cast<const char *>(found) - text.data());
}

/* The literal run at the front of a pattern: `length` bytes lie before the next "*", `counted` of them matter. */
struct Run {
  size_t length, counted;
};

Run runAt(const char *pattern) {
  const size_t length = static_cast<size_t>(strchrnul(pattern, '*') - pattern);
  return {length, std::min(length, maxRun)};
}

}  // namespace

namespace netsift {

/* Every turn of the loop consumes a run or a "*" of the pattern, so a position that moves back cannot keep it going.
   The position stays inside the text: a folded offset is never above the true one, and the true one plus the run is
   inside. */
bool matchesPattern(std::string_view text, const char *pattern) {
  size_t position = 0;
  const char *rest = pattern;
  if (*rest != '*') {
    const Run run = runAt(rest);
    if (text.size() < run.counted || std::memcmp(text.data(), rest, run.counted) != 0) return false;
    position = run.counted;
    rest += run.length;
  }
  if (*rest == '*') rest++;

  while (*rest != '\0' && position < text.size()) {
    const Run run = runAt(rest);
    const signed char offset = foldedOffset(text.substr(position), rest, run.counted);
    if (offset == notFound) return false;
    const ptrdiff_t next = static_cast<ptrdiff_t>(position) + offset + static_cast<ptrdiff_t>(run.counted);
    position = next > 0 ? static_cast<size_t>(next) : 0;
    rest += run.length;
    if (*rest == '*') rest++;
  }
  if (position < text.size()) return rest != pattern && rest[-1] == '*';
  return *rest == '\0';
}

}  // namespace netsift

int isMatching(const char *text, const char *pattern) { return netsift::matchesPattern(text, pattern) ? 1 : 0; }

int beginsWith(const char *text, const char *prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0 ? 1 : 0;
}

int beginsWithCI(const char *text, const char *prefix) {
  return strncasecmp(text, prefix, std::strlen(prefix)) == 0 ? 1 : 0;
}

signed char strsearch(const char *text, const char *needle) { return foldedOffset(text, needle, std::strlen(needle)); }

int contains(const char *text, const char *word) {
  const size_t length = std::strlen(word);
  const size_t last = static_cast<unsigned char>(length);
  const bool starBefore = word[0] == '*';
  const bool starAfter = last > 0 && word[last - 1] == '*';

  char small[maxStackWord + sizeof "**"];
  netsift::Text large;
  char *pattern = small;
  if (length > maxStackWord) {
    large.reset(static_cast<char *>(std::malloc(length + sizeof "**")));
    if (large == nullptr) return 0;
    pattern = large.get();
  }
  char *end = pattern;
  if (!starBefore) *end++ = '*';
  end = std::copy_n(word, length, end);
  if (!starAfter) *end++ = '*';
  *end = '\0';
  return isMatching(text, pattern);
}

int containsBeforeDelim(const char *text, const char *needle, char delimiter) {
  const char *end = strchrnul(text, delimiter);
  const void *found = memmem(text, static_cast<size_t>(end - text), needle, std::strlen(needle));
  return found == nullptr ? -1 : static_cast<int>(static_cast<const char *>(found) - text);
}
