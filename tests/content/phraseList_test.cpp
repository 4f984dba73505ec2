#include "content/phraseList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "content/phraseScan.h"
#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using netsift::test::LogCapture;
using netsift::test::ScratchRoot;
using netsift::test::writeFile;
using std::string;

string shown(const PhraseNode *list) {
  string text;
  for (; list != nullptr; list = list->next) text += "[" + string(list->phrase) + "]" + std::to_string(list->weight);
  return text;
}

TEST(PhraseList, ReadsRecords) {
  ScratchRoot root;
  const string x126(126, 'x');
  const struct {
    string file, expected;
  } cases[] = {
      {"<a b>5\n<c>-3", "[a b]5[c]-3"},
      {"<a> +5 \r\n\t\n<b>007(c>8", "[a]5[b]7[c]8"}, /* any opening byte */
      {"<\"word\">5<\"x>1<\">2", "[ word ]5[\"x]1[ ]2"},
      {"<>5\n<a>\n<b>x<c>-\n<d>4", "[a]0[b]0[<c]0[<d]4"},
      {string("<\0ab>5<a\0b>6", 12), "[a]6"},
      {"<" + x126 + ">1<" + x126 + "yy>2", "[" + x126 + "]1[" + x126 + "]2"},
      {"<a>4294967297\n<b>-2147483648\n<\xe9>1", "[a]1[b]-2147483648[\xe9]1"},
      {"<a>5\n<b", ""}, /* broken off: nothing is loaded */
      {"<a>5\n\n<", ""},
  };
  for (const auto &c : cases) {
    writeFile(root.config("list.phrase"), c.file);
    LogCapture log(1);
    PhraseNode *list = buildList("list");
    EXPECT_EQ(shown(list), c.expected) << c.file;
    EXPECT_EQ(log.text().empty(), !c.expected.empty()) << log.text();
    freeList(list);
  }
  LogCapture log(1);
  EXPECT_EQ(buildList("missing"), nullptr);
  EXPECT_NE(log.text().find("error opening phrase file " + root.config("missing.phrase") + " No such file"),
            string::npos);
}

TEST(PhraseList, IndexesRunsByFirstByte) {
  ScratchRoot root;
  writeFile(root.config("list.phrase"), "<\xe9>1<ab>1<ac>1<b>1<zy>1<zz>1");
  PhraseNode *list = buildList("list");
  PhraseNode *at[6];
  for (int i = 0; i < 6; i++) at[i] = i == 0 ? list : at[i - 1]->next;
  InitialEntry *index = buildIniList(list);
  const struct {
    char byte;
    int position, first, end;
  } cases[] = {{'\xe9', 0, 0, 1}, {'a', 1, 1, 3}, {'b', 2, 3, 4}, {'z', 3, 4, 5}};
  for (const auto &c : cases) {
    ASSERT_EQ(returnIndex(c.byte, index), c.position);
    EXPECT_EQ(index[c.position].first, at[c.first]);
    EXPECT_EQ(index[c.position].end, at[c.end]);
  }
  EXPECT_EQ(index[4].firstByte, 0);
  EXPECT_EQ(returnIndex('c', index), -1);
  EXPECT_EQ(returnIndex(0, index), -1);
  free(index);
  freeList(list);

  string alternating;
  for (int i = 0; i < 300; i++) alternating += i % 2 == 0 ? "<a>1" : "<b>1";
  writeFile(root.config("list.phrase"), alternating);
  list = buildList("list");
  index = buildIniList(list);
  int count = 0;
  while (index[count].firstByte != 0) count++;
  EXPECT_EQ(count, 255);
  EXPECT_EQ(index[254].end, index[254].first->next);
  free(index);
  freeList(list);

  InitialEntry *empty = buildIniList(nullptr);
  EXPECT_EQ(empty->firstByte, 0);
  free(empty);
}

TEST(PhraseList, LoadsCategoriesAndKeepsTheSlotsOfEmptyOnes) {
  ScratchRoot root;
  writeFile(root.config("a.phrase"), "<x>1\n");
  writeFile(root.config("b.phrase"), "");
  writeFile(root.config("d.phrase"), "<y>1\n");
  const char *files[] = {"a", "b", "c", "d"}, *names[] = {"A", "B", "C", "D"};
  categfiles1 = const_cast<char **>(files);
  categname1 = const_cast<char **>(names);
  for (int round = 0; round < 2; round++) { /* the second in place of the first */
    numcategories1 = 4;
    LogCapture log(4);
    ASSERT_EQ(makePhraseLists(), 1);
    EXPECT_TRUE(log.has("category filename a category name is A"));
    EXPECT_EQ(numcategories1, 2);
    EXPECT_EQ(phraselists[1], nullptr);
    EXPECT_EQ(shown(phraselists[3]), "[y]1");
    EXPECT_EQ(netsift::phraseSlots(), 4);
  }
  iniContentFilter();
  allowedweight = 1;
  EXPECT_EQ(isOffensiveContent(" y", 2), 0); /* the last category fell out of the count */
  EXPECT_EQ(isOffensiveContent(" x", 2), 1);
  numcategories1 = 200;
  EXPECT_EQ(static_cast<uint8_t>(isOffensiveContent(" y", 2)), 4);
  EXPECT_EQ(isOffensiveContent("", 0), 0);
  freePhraseLists(); /* all four, as the leak check sees */
  EXPECT_EQ(phraselists, nullptr);

  numcategories1 = 4;
  writeFile(root.config("c.phrase"), "<broken");
  EXPECT_EQ(makePhraseLists(), -1);
  EXPECT_EQ(numcategories1, 4);
  freePhraseLists();
  freePhraseLists();
  relContentFilter();
}

}  // namespace
