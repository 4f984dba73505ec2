#include "content/phraseScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "content/phraseList.h"
#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using std::string;

/* A phrase file's list and its index. */
struct Category {
  PhraseNode *list = nullptr;
  InitialEntry *index;
  explicit Category(string file) {
    FILE *stream = fmemopen(file.data(), file.size() + 1, "r"); /* the NUL ends a reading as the end of a file does */
    for (PhraseNode **end = &list; (*end = readPhrase(stream)) != nullptr;) end = &(*end)->next;
    fclose(stream);
    index = buildIniList(list);
  }
  ~Category() {
    free(index);
    freeList(list);
  }
};

int scan(const string &text, const InitialEntry *index) {
  return calcWeight(netsift::test::GuardedText(text).get(), static_cast<int>(text.size()), index, 0);
}

struct Match {
  const PhraseNode *candidate, *end;
  size_t matched;
};

/* The scan as it is defined: every run walked phrase by phrase. */
bool walk(Match &m, signed char c) {
  const auto inRange = [&](const PhraseNode *n) { return n != nullptr && n != m.end; };
  const auto byteOf = [&](const PhraseNode *n) { return static_cast<signed char>(n->phrase[m.matched]); };
  for (; inRange(m.candidate) && byteOf(m.candidate) <= c; m.candidate = m.candidate->next) {
    if (byteOf(m.candidate) != c || c == 0) continue;
    const PhraseNode *after = m.candidate;
    while (inRange(after) && byteOf(after) == c) after = after->next;
    m = {m.candidate, after, m.matched + 1};
    return true;
  }
  return false;
}

int reference(const string &text, const InitialEntry *index, std::vector<const PhraseNode *> &found, int &weight) {
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
      if (walk(m, c)) kept.push_back(m);
    }
    open = kept;
    const int entry = returnIndex(c, index);
    if (entry != -1 && open.size() < 30) open.push_back({index[entry].first, index[entry].end, 1});
  }
  return 0;
}

TEST(PhraseScan, ScoresTexts) {
  const struct {
    string file, text;
    int weight, weightOnce;
  } cases[] = {{"<ab>5<zz>1", "ab", 0, 0}, /* position 0 begins no phrase */
               {"<ab>5<zz>1", " abababab", 20, 5},
               {"<ab>5<abc>7<zz>1", " abc", 12, 12},
               {"<abc>5<bc>7<c>9<zz>1", " abc", 5, 5},   /* one count a position, the earliest start's */
               {"<abc>5<bc>7<zz>1", " abc abc", 10, 12}, /* a phrase passed over leaves the position */
               {"<\"casino\">5<zz>1", "x casino, casino a casino", 5, 5},
               {"<ab>5<zz>7", " zz ab", 5, 5}, /* the last phrase lies outside every range */
               {"<ab>5<z>7", " z", 7, 7},
               {"<\xe9t\xe9>5<ab>1<zz>1", " \xe9t\xe9", 5, 5},
               {"<a>5<a\xe9>8<ba>3<zz>1", " ba\xe9 ", 3, 3}, /* "a" stays, whole, and hides lower bytes */
               {"<ab>5<zz>1", string(" a\0ab\0b", 7), 5, 5}};
  numcategories1 = 1;
  allowedweight = 100;
  for (const auto &c : cases) {
    Category category(c.file);
    for (uniqueoccur = 0; uniqueoccur < 2; uniqueoccur++) {
      iniContentFilter();
      EXPECT_EQ(scan(c.text, category.index), 0) << c.text;
      EXPECT_EQ(totalweight, uniqueoccur ? c.weightOnce : c.weight) << c.file << c.text << " once " << int{uniqueoccur};
    }
  }
}

/* Phrases cut from the text, some with another last byte: they nest, share prefixes, end together, and more than 30
   want to be open at once. */
TEST(PhraseScan, EqualsTheWalkOnRandomLists) {
  std::mt19937 random(7);
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  const auto before = [](char x, char y) { return static_cast<signed char>(x) < static_cast<signed char>(y); };
  const string alphabets[] = {"aaaaaaaab", "ab\xe9", "ab\xe9z\x01 ", string("a\xe9\0b", 4),
                              "abcdefghijklmnopqrstuvwxyz 01"};
  numcategories1 = 1;
  for (int round = 0; round < 1500; round++) {
    const string &alphabet = alphabets[below(5)];
    string texts[2] = {string(100, ' '), string(100, ' ')};
    for (string &text : texts)
      std::generate(text.begin(), text.end(), [&] { return alphabet[below(alphabet.size())]; });
    std::vector<string> phrases(below(round % 2 == 0 ? 120 : 12));
    const size_t longest = 1 + below(60);
    for (string &phrase : phrases) {
      phrase = texts[0].substr(below(100), 1 + below(longest)).c_str();
      if (below(3) == 0) phrase = phrase.substr(0, phrase.size() / 2) + "abz\xe9"[below(4)];
      phrase += '\0'; /* it sorts with its end */
    }
    const size_t order = below(3); /* else as they come */
    if (order == 1) std::sort(phrases.begin(), phrases.end());
    if (order == 2) {
      std::sort(phrases.begin(), phrases.end(), [&](const string &a, const string &b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), before);
      });
    }
    string file;
    for (const string &phrase : phrases)
      file += "<" + string(phrase.c_str()) + ">" + std::to_string(int(below(20)) - 5);
    Category category(file);
    std::vector<InitialEntry> walked(256); /* the same index without its tables */
    for (size_t i = 0; category.index[i].firstByte != 0; i++) walked[i] = category.index[i];

    uniqueoccur = static_cast<uint8_t>(below(2));
    allowedweight = below(2) == 0 ? 1000000 : static_cast<int>(below(60));
    for (const InitialEntry *index : {category.index, walked.data()}) {
      iniContentFilter();
      std::vector<const PhraseNode *> found; /* carried over from text to text */
      for (const string &text : texts) {
        int weight;
        const int expected = reference(text, index, found, weight);
        ASSERT_EQ(scan(text, index), expected) << "round " << round << " text " << text << " file " << file;
        ASSERT_EQ(totalweight, weight) << "round " << round << " text " << text << " file " << file;
      }
    }
  }
}

/* So many long matches, one that ends after two bytes, and a phrase that begins while that one is still open. */
TEST(PhraseScan, AMatchThatWillFailTakesItsPlaceInThePool) {
  string text;
  for (char c = 'A'; text.size() < 94; c = c == '~' ? '!' : static_cast<char>(c + 1))
    text += c == '<' || c == '>' ? ' ' : c;
  allowedweight = 1000;
  for (const auto &[open, failing, weight] : {std::tuple{28, 1, 7}, {29, 1, 0}, {29, 0, 7}, {30, 0, 0}}) {
    string file;
    const size_t after = static_cast<size_t>(open) + 1;
    for (size_t i = 1; i < after; i++) file += "<" + text.substr(i, 60) + ">0";
    if (failing) file += "<" + text.substr(after, 2) + "+>0";
    Category category(file + "<" + text.substr(after + 1, 3) + ">7<zz>0");
    iniContentFilter();
    scan(text, category.index);
    EXPECT_EQ(totalweight, weight) << open << " open, " << failing << " failing";
  }
}

TEST(PhraseScan, PoolIsAQueueOfThirty) {
  EXPECT_EQ(getFromFifo(), nullptr);
  ASSERT_EQ(initialiseFifo(), 1);
  std::vector<FifoNode *> taken;
  while (FifoNode *node = getFromFifo()) taken.push_back(node);
  ASSERT_EQ(taken.size(), 30U);

  Category category("<ab>5<zz>1");
  allowedweight = 100;
  scan(" ab", category.index); /* no match can be opened */
  EXPECT_EQ(totalweight, 0);
  releaseToFifo(taken[4]);
  scan(" ab", category.index);
  EXPECT_EQ(totalweight, 5);
  FifoNode foreign{};
  releaseToFifo(&foreign);
  taken[2]->next = taken[1];
  taken[1]->next = nullptr;
  releaseAllToFifo(taken[2]);
  for (FifoNode *node : {taken[4], taken[2], taken[1], taken[0]}) {
    EXPECT_EQ(getFromFifo(), node == taken[0] ? nullptr : node);
  }
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
  allowedweight = 12;
  const auto judge = [](const string &text) { return isOffensiveContent(text.c_str(), static_cast<int>(text.size())); };
  {
    netsift::test::LogCapture log(4);
    EXPECT_EQ(judge("an apple, a pear"), 2);
    EXPECT_EQ(log.messages(), (std::vector<string>{" Fruit weight 4", "apple", "pear"}));
  }
  EXPECT_EQ(categweight[0], 4);
  EXPECT_EQ(categweight[1], 12);
  allowedweight = 0;
  EXPECT_EQ(judge(""), 1);

  /* Released in any order, asked in any state. */
  allowedweight = 12;
  for (void (*release)(void) : {freePhraseLists, relContentFilter, relContentFilter, freePhraseLists}) {
    release();
    EXPECT_EQ(judge("an apple, a pear"), 0);
  }
  EXPECT_EQ(contentinitialised, 0);
}

}  // namespace
