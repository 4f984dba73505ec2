#include "content/phraseScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "content/phraseList.h"
#include "content/phraseTable.h"
#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using netsift::test::GuardedText;
using netsift::test::LogCapture;
using std::string;

struct Phrase {
  string text;
  int weight;
};

/* A list as a host may build it, with its index. */
struct Category {
  PhraseNode *list = nullptr;
  InitialEntry *index;
  explicit Category(const std::vector<Phrase> &phrases) {
    PhraseNode **end = &list;
    for (const Phrase &phrase : phrases) {
      *end = static_cast<PhraseNode *>(malloc(sizeof(PhraseNode)));
      **end = {strdup(phrase.text.c_str()), phrase.weight, nullptr};
      end = &(*end)->next;
    }
    index = buildIniList(list);
  }
  ~Category() {
    free(index);
    freeList(list);
  }
};

int scan(const string &text, const InitialEntry *index) {
  return calcWeight(GuardedText(text).get(), static_cast<int>(text.size()), index, 0);
}

/* The scan as it is defined: every run walked phrase by phrase. */
struct Reference {
  std::vector<const PhraseNode *> found;
  int weight = 0;

  struct Match {
    const PhraseNode *candidate, *end;
    size_t matched;
  };

  bool extend(Match &m, signed char c) const {
    auto is = [&](const PhraseNode *n) { return n != nullptr && n != m.end; };
    for (; is(m.candidate); m.candidate = m.candidate->next) {
      const auto byte = static_cast<signed char>(m.candidate->phrase[m.matched]);
      if (byte > c) return false;
      if (byte != c || c == 0) continue;
      const PhraseNode *after = m.candidate->next;
      while (is(after) && after->phrase[m.matched] == c) after = after->next;
      m.end = after;
      m.matched++;
      return true;
    }
    return false;
  }

  int scan(const string &text, const InitialEntry *index) {
    weight = 0;
    std::vector<Match> open;
    for (size_t i = 1; i <= text.size(); i++) {
      const char c = text.c_str()[i];
      bool counted = false;
      std::vector<Match> kept;
      for (Match m : open) {
        if (m.candidate->phrase[m.matched] == '\0' && !counted) {
          if (uniqueoccur == 0 || std::find(found.begin(), found.end(), m.candidate) == found.end()) {
            if (found.size() < 20) found.push_back(m.candidate);
            weight += m.candidate->weight;
            if (weight >= allowedweight) return 1;
            counted = true;
          }
          m.candidate = m.candidate->next;
        }
        if (extend(m, c)) kept.push_back(m);
      }
      open = kept;
      const int entry = returnIndex(c, index);
      if (entry != -1 && open.size() < 30) open.push_back({index[entry].first, index[entry].end, 1});
    }
    return 0;
  }
};

TEST(PhraseScan, ScoresTexts) {
  struct Case {
    std::vector<Phrase> phrases;
    string text;
    int weight, weightOnce;
  };
  const Phrase last{"zz", 1000};
  const Case cases[] = {
      {{{"ab", 5}, last}, "ab", 0, 0}, /* position 0 begins no phrase */
      {{{"ab", 5}, last}, " ab", 5, 5},
      {{{"ab", 5}, last}, " abababab ", 20, 5},
      {{{"ab", 5}, {"abc", 7}, last}, " abc", 12, 12},
      {{{"abc", 5}, {"bc", 7}, {"c", 9}, last}, " abc", 5, 5}, /* one count a position, the earliest start's */
      {{{"abc", 5}, {"bc", 7}, last}, " abc abc", 10, 12},     /* a phrase passed over leaves the position */
      {{{" casino ", 5}, last}, "x casino, casino a casino", 5, 5},
      {{{"a", 3}, {"ab", 5}, {"b", -2}, last}, " ab", 8, 8},
      {{{"ab", 5}, {"zz", 7}}, " zz ab", 5, 5}, /* the last phrase lies outside every range */
      {{{"ab", 5}, {"z", 7}}, " z", 7, 7},
      {{{"ab", 5}, {"ab", 6}, last}, " ab", 5, 5},
      {{{"\xe9t\xe9", 5}, {"ab", 1}, last}, " \xe9t\xe9", 5, 5},
      {{{"a\xe9", 5}, {"a", 1}, last}, " a\xe9 a ", 5, 5}, /* only the first of a run can be whole after one byte */
      {{{"a", 5}, {"a\xe9", 8}, {"ba", 3}, last}, " ba\xe9 ", 3, 3}, /* "a" stays, whole, and hides lower bytes */
      {{{"ab", 5}, last}, string(" a\0ab\0b", 7), 5, 5},
      {{{"ab", INT32_MAX}, {"b", 9}, last}, " b b", 18, 9},
  };
  ASSERT_EQ(iniContentFilter(), 1);
  for (const Case &c : cases) {
    Category category(c.phrases);
    allowedweight = INT32_MAX;
    for (int once : {0, 1}) {
      numcategories1 = 1;
      iniContentFilter();
      uniqueoccur = static_cast<uint8_t>(once);
      EXPECT_EQ(scan(c.text, category.index), 0) << c.text;
      EXPECT_EQ(totalweight, once ? c.weightOnce : c.weight) << c.text << " once " << once;
    }
  }
}

TEST(PhraseScan, StopsAtThePhraseThatReachesTheThreshold) {
  Category category({{"ab", 5}, {"cd", -5}, {"zz", 1}});
  numcategories1 = 1;
  iniContentFilter();
  allowedweight = 10;
  EXPECT_EQ(scan(" ab ab cd cd", category.index), 1);
  EXPECT_EQ(totalweight, 10);
  EXPECT_EQ(scan(" ab cd ab", category.index), 0);
  EXPECT_EQ(totalweight, 5);
}

bool signedOrder(const Phrase &a, const Phrase &b) {
  return std::lexicographical_compare(
      a.text.c_str(), a.text.c_str() + a.text.size() + 1, b.text.c_str(), b.text.c_str() + b.text.size() + 1,
      [](char x, char y) { return static_cast<signed char>(x) < static_cast<signed char>(y); });
}

/* Phrases cut from the text, some with another last byte: they nest, share prefixes, end together, and more than 30
   want to be open at once. */
TEST(PhraseScan, EqualsTheWalkOnRandomLists) {
  std::mt19937 random(7);
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  const string alphabets[] = {"aaaaaaaab", "ab\xe9", "ab\xe9z\x01 ", string("a\xe9\0b", 4),
                              "abcdefghijklmnopqrstuvwxyz 0123456789"};
  numcategories1 = 1;
  for (int round = 0; round < 1500; round++) {
    const string &alphabet = alphabets[below(5)];
    std::vector<string> texts(2, string(100, ' '));
    for (string &text : texts) {
      for (char &c : text) c = alphabet[below(alphabet.size())];
    }
    std::vector<Phrase> phrases;
    const size_t longest = 1 + below(60);
    for (size_t i = below(round % 2 == 0 ? 120 : 12); i > 0; i--) {
      string phrase = texts[0].substr(below(100), 1 + below(longest)).c_str();
      if (below(3) == 0 && !phrase.empty()) phrase.back() = "abz\xe9"[below(4)];
      if (!phrase.empty()) phrases.push_back({phrase, static_cast<int>(below(20)) - 5});
    }
    const size_t order = below(3); /* else as they come */
    const auto unsignedOrder = [](const Phrase &x, const Phrase &y) { return x.text < y.text; };
    if (order == 1) std::sort(phrases.begin(), phrases.end(), unsignedOrder);
    if (order == 2) std::sort(phrases.begin(), phrases.end(), signedOrder);
    Category category(phrases);
    std::vector<InitialEntry> walked(256); /* the same index without its tables */
    for (size_t i = 0; category.index[i].firstByte != 0; i++) walked[i] = category.index[i];

    uniqueoccur = static_cast<uint8_t>(below(2));
    allowedweight = below(2) == 0 ? 1000000 : static_cast<int>(below(60));
    for (const InitialEntry *index : {category.index, walked.data()}) {
      iniContentFilter();
      Reference reference;
      for (const string &text : texts) { /* the found table carries over */
        const int expected = reference.scan(text, index);
        ASSERT_EQ(scan(text, index), expected) << "round " << round << " text " << text;
        ASSERT_EQ(totalweight, reference.weight) << "round " << round << " text " << text;
      }
    }
  }
}

/* So many long matches, one that ends after two bytes, and a phrase that begins while that one is still open. */
TEST(PhraseScan, AMatchThatWillFailTakesItsPlaceInThePool) {
  string text(94, ' ');
  for (size_t i = 0; i < text.size(); i++) text[i] = static_cast<char>('!' + i);
  allowedweight = 1000;
  for (const auto &[open, failing, weight] : {std::tuple{28, 1, 7}, {29, 1, 0}, {29, 0, 7}, {30, 0, 0}}) {
    std::vector<Phrase> phrases;
    const size_t after = static_cast<size_t>(open) + 1;
    for (size_t i = 1; i < after; i++) phrases.push_back({text.substr(i, 60), 0});
    if (failing) phrases.push_back({text.substr(after, 2) + "#", 0});
    phrases.push_back({text.substr(after + 1, 3), 7});
    phrases.push_back({"~~", 0});
    Category category(phrases);
    iniContentFilter();
    scan(text, category.index);
    EXPECT_EQ(totalweight, weight) << open << " open, " << failing << " failing";
  }
}

TEST(PhraseScan, RecordsTwentyPhrasesAndWeighsTheRest) {
  std::vector<Phrase> phrases;
  string text;
  for (char c = 'a'; c <= 'z'; c++) {
    phrases.push_back({string(2, c), 1});
    text += string(" ") + c + c;
  }
  Category category(phrases);
  numcategories1 = 1;
  iniContentFilter();
  uniqueoccur = 1;
  allowedweight = 1000;
  scan(text, category.index);
  EXPECT_EQ(totalweight, 25);
  scan(text, category.index);
  EXPECT_EQ(totalweight, 5); /* the 21st to the 25th */
  iniContentFilter();
  scan(text, category.index);
  EXPECT_EQ(totalweight, 25);
}

TEST(PhraseScan, PoolIsAQueueOfThirty) {
  EXPECT_EQ(getFromFifo(), nullptr);
  queue_count = 7;
  ASSERT_EQ(initialiseFifo(), 1);
  EXPECT_EQ(queue_count, 0);
  std::deque<FifoNode *> taken;
  while (FifoNode *node = getFromFifo()) taken.push_back(node);
  ASSERT_EQ(taken.size(), 30U);

  Category category({{"ab", 5}, {"zz", 1}});
  allowedweight = 100;
  scan(" ab", category.index); /* no match can be opened */
  EXPECT_EQ(totalweight, 0);
  releaseToFifo(taken[4]);
  scan(" ab", category.index);
  EXPECT_EQ(totalweight, 5);
  FifoNode foreign{};
  releaseToFifo(&foreign);
  releaseToFifo(taken[2]);
  EXPECT_EQ(getFromFifo(), taken[4]);
  EXPECT_EQ(getFromFifo(), taken[2]);
  EXPECT_EQ(getFromFifo(), nullptr);
  taken[0]->next = taken[1];
  taken[1]->next = nullptr;
  releaseAllToFifo(taken[0]);
  EXPECT_EQ(getFromFifo(), taken[0]);
  EXPECT_EQ(getFromFifo(), taken[1]);
  freeFifo();
}

TEST(PhraseScan, NamesTheFirstCategoryThatReachesTheThreshold) {
  netsift::test::ScratchRoot root;
  netsift::test::writeFile(root.config("one.phrase"), "<apple>4\n<zz>1\n");
  netsift::test::writeFile(root.config("two.phrase"), "<apple>3\n<pear>9\n<zz>1\n");
  const char *files[] = {"one", "two"}, *names[] = {"Fruit", "Orchard"};
  categfiles1 = const_cast<char **>(files);
  categname1 = const_cast<char **>(names);
  numcategories1 = 2;
  ASSERT_EQ(makePhraseLists(), 1);
  ASSERT_EQ(iniContentFilter(), 1);
  EXPECT_EQ(contentinitialised, 1);
  allowedweight = 12;
  const auto judge = [](const string &text) { return isOffensiveContent(text.c_str(), static_cast<int>(text.size())); };
  {
    LogCapture log(4);
    EXPECT_EQ(judge("an apple, a pear"), 2);
    EXPECT_EQ(log.messages(), (std::vector<string>{" Fruit weight 4", "apple", "pear"}));
  }
  EXPECT_EQ(categweight[0], 4);
  EXPECT_EQ(categweight[1], 12);
  EXPECT_EQ(judge("a pear"), 0);
  allowedweight = 0;
  EXPECT_EQ(judge(""), 1);

  /* Released in any order, asked in any state. */
  freePhraseLists();
  allowedweight = 12;
  EXPECT_EQ(judge("an apple, a pear"), 0);
  relContentFilter();
  EXPECT_EQ(contentinitialised, 0);
  relContentFilter();
  freePhraseLists();
  EXPECT_EQ(judge("an apple, a pear"), 0);
}

}  // namespace
