#include "content/phraseWords.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "content/normalText.h"
#include "content/openMatch.h"
#include "content/phraseList.h"
#include "log/debugLog.h"

namespace netsift {
namespace {

struct WordPhrase {
  std::string text;
  int32_t weight;
};

/* As matches pass over them: what a phrase goes on with comes behind it, ascending as signed characters. */
bool comesBefore(const WordPhrase &one, const WordPhrase &other) {
  const auto before = [](char a, char b) { return static_cast<signed char>(a) < static_cast<signed char>(b); };
  return std::lexicographical_compare(one.text.begin(), one.text.end(), other.text.begin(), other.text.end(), before);
}

/* No more than a match can hold, and whole characters. */
void cut(std::string &text) {
  if (text.size() <= matchedLimit) return;
  size_t length = matchedLimit;
  while (length > 0 && (static_cast<uint8_t>(text[length]) & 0xC0) == 0x80) length--;
  text.resize(length);
}

PhraseNode *makeNode(const WordPhrase &phrase) {
  auto *node = static_cast<PhraseNode *>(std::malloc(sizeof(PhraseNode)));
  char *copy = strdup(phrase.text.c_str());
  if (node == nullptr || copy == nullptr) std::abort();
  *node = {copy, phrase.weight, nullptr};
  return node;
}

}  // namespace

PhraseNode *wordList(PhraseNode *list) {
  std::vector<WordPhrase> phrases;
  for (const PhraseNode *node = list; node != nullptr; node = node->next) {
    std::string text = normalPhrase(node->phrase);
    cut(text);
    if (text.find_first_not_of(' ') != std::string::npos) {
      phrases.push_back({std::move(text), node->weight});
    } else {
      dprintf(2, "phrase without a letter or digit left out: %s\n", node->phrase);
    }
  }
  freeList(list);
  std::stable_sort(phrases.begin(), phrases.end(), comesBefore);
  const auto isSame = [](const WordPhrase &one, const WordPhrase &other) { return one.text == other.text; };
  phrases.erase(std::unique(phrases.begin(), phrases.end(), isSame), phrases.end());
  phrases.push_back({"\x7F", 0});

  PhraseNode *words = nullptr, **end = &words;
  for (const WordPhrase &phrase : phrases) {
    *end = makeNode(phrase);
    end = &(*end)->next;
  }
  return words;
}

}  // namespace netsift
