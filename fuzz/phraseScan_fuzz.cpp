/* Phrase files and the scan: the input up to its first line "==" is a phrase file, the rest a text. An index without
   its look-up tables must score as the one with them. */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "state/settings.h"

namespace {

PhraseNode *readList(std::string_view file) {
  PhraseNode *list = nullptr;
  if (file.empty()) return list;
  FILE *stream = fmemopen(const_cast<char *>(file.data()), file.size(), "r");
  if (stream == nullptr) abort();
  for (PhraseNode **end = &list; (*end = readPhrase(stream)) != nullptr;) end = &(*end)->next;
  fclose(stream);
  return list;
}

struct Score {
  int reached, weight;
  bool operator==(const Score &) const = default;
};

Score scan(const std::string &text, const InitialEntry *index) {
  if (iniContentFilter() != 1) abort();
  const int reached = calcWeight(text.c_str(), static_cast<int>(text.size()), index, 0);
  return {reached, totalweight};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view input(reinterpret_cast<const char *>(data), size);
  const size_t divider = input.find("\n==\n");
  if (divider == std::string_view::npos || size > 20000) return 0;
  PhraseNode *list = readList(input.substr(0, divider));
  const std::string text(input.substr(divider + 4));

  InitialEntry *index = buildIniList(list);
  std::vector<InitialEntry> walked(256);
  for (size_t i = 0; index[i].firstByte != 0; i++) walked[i] = index[i];
  numcategories1 = 1;
  uniqueoccur = size % 2;
  allowedweight = size % 3 == 0 ? 20 : INT32_MAX;
  if (scan(text, index) != scan(text, walked.data())) abort();

  relContentFilter();
  free(index);
  freeList(list);
  return 0;
}
