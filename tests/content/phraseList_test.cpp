#include "content/phraseList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

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
  } cases[] = {{"<a b>5\n<c>-3", "[a b]5[c]-3"},
               {"<a> +5 \r\n\t\n<b>007(c>8", "[a]5[b]7[c]8"}, /* any opening byte */
               {"<\"word\">5<\"x>1<\">2", "[ word ]5[\"x]1[ ]2"},
               {"<>5\n<a>\n<b>x<c>-\n<d>4", "[a]0[b]0[<c]0[<d]4"},
               {string("<\0ab>5<a\0b>6", 12), "[a]6"},
               {"<" + x126 + ">1<" + x126 + "yy>2", "[" + x126 + "]1[" + x126 + "]2"},
               {"<a>4294967297\n<b>-2147483648\n<\xe9>1", "[a]1[b]-2147483648[\xe9]1"},
               {"<a>5\n<b", ""}, /* broken off: nothing is loaded */
               {"<a>5\n\n<", ""}};
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
  EXPECT_NE(log.text().find("error opening phrase file " + root.config("missing.phrase") + " No such"), string::npos);
}

/* Each run by its phrases' numbers: "byte first-end". */
string indexed(const string &file, ScratchRoot &root) {
  writeFile(root.config("list.phrase"), file);
  PhraseNode *list = buildList("list");
  InitialEntry *index = buildIniList(list);
  const auto number = [&](const PhraseNode *node) {
    int count = 0;
    for (const PhraseNode *at = list; at != node; at = at->next) count++;
    return std::to_string(count);
  };
  string text;
  for (int i = 0; index[i].firstByte != 0; i++) {
    text +=
        string(1, static_cast<char>(index[i].firstByte)) + number(index[i].first) + "-" + number(index[i].end) + " ";
  }
  EXPECT_EQ(returnIndex('b', index), text.find('b') == string::npos ? -1 : text[0] == 'b' ? 0 : 1) << text;
  EXPECT_EQ(returnIndex(0, index), -1);
  free(index);
  freeList(list);
  return text;
}

TEST(PhraseList, IndexesRunsByFirstByte) {
  ScratchRoot root;
  EXPECT_EQ(indexed("<ab>1<b>1<zy>1<zz>1", root), "a0-1 b1-2 z2-3 ");
  EXPECT_EQ(indexed("<\xe9>1<b>1<bc>1<a>1", root),
            "\xe9"
            "0-1 b1-3 a3-3 ");
  EXPECT_EQ(indexed("", root), "");
  string alternating;
  for (int i = 0; i < 150; i++) alternating += "<a>1<b>1";
  const string runs = indexed(alternating, root);
  EXPECT_EQ(std::count(runs.begin(), runs.end(), ' '), 255);
  EXPECT_EQ(runs.substr(runs.size() - 9), "a254-255 ");
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
  }
  iniContentFilter();
  allowedweight = 1;
  EXPECT_EQ(isOffensiveContent(" y", 2), 0); /* the last category fell out of the count */
  EXPECT_EQ(isOffensiveContent(" x", 2), 1);
  numcategories1 = 4;
  EXPECT_EQ(isOffensiveContent(" y", 2), 4);
  numcategories1 = 2;
  freePhraseLists(); /* all four, as the leak check sees */
  EXPECT_EQ(phraselists, nullptr);

  numcategories1 = 4;
  writeFile(root.config("c.phrase"), "<broken");
  EXPECT_EQ(makePhraseLists(), -1);
  EXPECT_EQ(numcategories1, 4);
  freePhraseLists();
  relContentFilter();
}

}  // namespace
