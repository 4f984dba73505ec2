#include "content/phraseList.h"
#include "content/phrasePass.h"
#include "content/phraseScan.h"
#include "tests/support/support.h"

namespace {

int scan(const string &text, const InitialEntry *index, int category = 0) {
  return calcWeight(GuardedText(text).get(), static_cast<int>(text.size()), index, category);
}

TEST(PhraseList, ReadsRecords) {
  const ScratchRoot root;
  const string x126(126, 'x');
  const std::pair<string, string> cases[] = {{"<a> +5 \r\n\t\n<b>-07(c>8", "[a]5[b]-7[c]8"}, /* any opening byte */
                                             {"<\"word\">5<\"x>1<\">2", "[ word ]5[\"x]1[ ]2"},
                                             {"<>5\n<a>\n<b>x<c>-\n<d>4", "[]5[a]0[b]0[<c]0[<d]4"},
                                             {string("<\0ab>5<a\0b>6", 12), "[]5[a]6"},
                                             {"<" + x126 + ">1<" + x126 + "yy>2", "[" + x126 + "]1[" + x126 + "]2"},
                                             {"<a>4294967297\n<b>-2147483648\n<\xe9>1", "[a]1[b]-2147483648[\xe9]1"},
                                             {"<a>5\n<b", ""}, /* broken off: nothing is loaded */
                                             {"<a>5\n\n<", ""}};
  for (const auto &[file, expected] : cases) {
    writeFile(root.config("list.phrase"), file);
    const LogCapture log(1);
    PhraseNode *list = buildList("list");
    string read;
    for (auto *at = list; at != nullptr; at = at->next)
      read += "[" + string(at->phrase) + "]" + std::to_string(at->weight);
    EXPECT_EQ(read, expected) << file;
    EXPECT_EQ(log.text().empty(), !expected.empty()) << log.text();
    freeList(list);
  }
  const LogCapture log(1);
  EXPECT_EQ(buildList("missing"), nullptr);
  EXPECT_NE(log.text().find("error opening phrase file " + root.config("missing.phrase") + " No such"), string::npos);
}

/* The files of some categories, loaded. */
struct Loaded {
  const ScratchRoot root;
  void load(const std::vector<string> &contents) {
    std::vector<string> files;
    for (const string &content : contents) {
      files.push_back(std::to_string(files.size()));
      writeFile(root.config(files.back() + ".phrase"), content);
    }
    nameCategories(files);
    ASSERT_EQ(makePhraseLists(), 1);
    numcategories1 = static_cast<uint8_t>(contents.size()); /* with those that an empty file took off the count */
  }
  ~Loaded() {
    freePhraseLists();
    relContentFilter();
  }
};

int judge(const string &text) {
  return static_cast<uint8_t>(isOffensiveContent(GuardedText(text).get(), static_cast<int>(text.size())));
}

TEST(PhraseScan, ScoresTexts) {
  string runs254, hidden80, once21, letters21;
  for (int i = 0; i < 127; i++) runs254 += "<a>1<b>1";
  for (int i = 0; i < 80; i++) hidden80 += "ba\xe9";
  for (char c = 'a'; c <= 'u'; c++) letters21 += c, once21 += "<" + string(1, c) + ">1";
  const std::tuple<string, string, int, int> cases[] = {
      {"<ab>5<zz>1", "abababab", 15, 5},            /* position 0 begins no phrase */
      {"<abc>5<bc>7<c>9<zz>1", " abc", 5, 5},       /* one count a position, the earliest start's */
      {"<abc>5<bc>7<zz>1", " abc abc", 10, 12},     /* a phrase passed over leaves the position */
      {"<\"ab\">5<ab>1<zz>7", " zz ab ", 6, 6},     /* the last phrase lies outside every range */
      {"<\xe9t\xe9>5<z>7", " \xe9t\xe9z", 12, 12},  /* but not a single byte */
      {"<a>5<a\xe9>8<ba>3<zz>1", " ba\xe9 ", 3, 3}, /* "a" stays, whole, and hides lower bytes */
      {"<a>5<a\xe9xxxxba\xe9xq>8<ba>3<zz>1", " ba\xe9xxxxba\xe9xq ", 6, 8},
      {"<a>5<a\xe9q>8<ba>3<zz>1", " " + hidden80 + "q ", 240, 16},
      {"<a>5<a\xe9>8<ab>2<ba>3<zz>1", " bab ", 5, 5}, /* but not higher ones */
      {"<ab>5<zz>1", string(" a\0ab\0b", 7), 5, 5},
      {"<ab>5<>3<ac>7<z>2<>1", " ab ac z", 7, 7},               /* an empty phrase ends a run, and may be the last */
      {runs254 + "<c>5<d>7<e>9", " cde", 5, 5},                 /* an index has 255 runs */
      {once21 + "<zz>0", " " + letters21 + letters21, 42, 22}}; /* the first 20 are remembered */
  Loaded loaded;
  allowedweight = 1000;
  for (const auto &[file, text, weight, weightOnce] : cases) {
    loaded.load({file, "<a\xe9>4<zz>1"});
    for (uniqueoccur = 0; uniqueoccur < 2; uniqueoccur++) {
      iniContentFilter();
      EXPECT_EQ(scan(text, initiallists[0]), 0) << text;
      EXPECT_EQ(totalweight, uniqueoccur ? weightOnce : weight) << file << text << " once " << int{uniqueoccur};
      scan(text, initiallists[1], 1);
      const std::vector expected = {uniqueoccur ? weightOnce : weight, totalweight};
      iniContentFilter();
      EXPECT_EQ(judge(text), 0) << text;
      EXPECT_EQ(std::vector(categweight, categweight + 2), expected) << file << text << " once " << int{uniqueoccur};
    }
  }
  allowedweight = 42;
  uniqueoccur = 0;
  EXPECT_EQ(scan(" " + letters21 + letters21, initiallists[0]), 1) << "stops where the threshold is reached";
}

/* Random texts over a small alphabet, and lists of phrases cut from the first of them, some with another last byte: they
   nest, share prefixes, end together, and more than 30 want to be open at once. */
struct RandomLists {
  std::mt19937 random{7};
  string alphabet;
  string texts[2];

  size_t below(size_t n) { return static_cast<size_t>(random() % n); }

  void newTexts(size_t size) {
    const string alphabets[] = {"aaaaaaaab", "ab\xe9", "ab\xe9z\x01 ", string("a\xe9\0b", 4),
                                "abcdefghijklmnopqrstuvwxyz 01"};
    alphabet = alphabets[below(5)];
    for (string &text : texts) {
      text.resize(size);
      std::generate(text.begin(), text.end(), [&] { return alphabet[below(alphabet.size())]; });
    }
  }

  string file(size_t count, size_t longest) {
    std::vector<string> phrases(count);
    for (string &phrase : phrases) {
      phrase = texts[0].substr(below(texts[0].size() + 1), 1 + below(longest)).c_str();
      if (below(3) == 0) phrase = phrase.substr(0, phrase.size() / 2) + "abz\xe9"[below(4)];
      phrase += '\0'; /* it sorts with its end */
    }
    if (const size_t order = below(3); order > 0) { /* else as they come */
      std::sort(phrases.begin(), phrases.end(), [&](const string &a, const string &b) {
        const auto before = [](signed char x, signed char y) { return x < y; };
        return order == 1 ? a < b : std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), before);
      });
    }
    string file;
    for (const string &phrase : phrases)
      file += "<" + string(phrase.c_str()) + ">" + std::to_string(int(below(20)) - 5);
    return file;
  }
};

/* An index without its look-up tables is walked phrase by phrase, which is how the scan is defined. Short texts are read
   in one stretch, long ones in several side by side and in several turns. */
TEST(PhraseScan, EqualsTheWalkOfEachListOneByOneAndInOnePass) {
  constexpr size_t sizes[] = {0, 1, 2, 100, 100, 600, 600, 1500, 9000};
  RandomLists lists;
  Loaded loaded;
  int passes = 0, walks = 0;
  for (int round = 0; round < 300; round++) {
    lists.newTexts(sizes[lists.below(round % 20 == 0 ? 9 : 8)]);
    std::vector<string> files(1 + lists.below(4));
    const size_t longest = 1 + lists.below(round % 2 == 0 ? 10 : 130);
    for (string &file : files) file = lists.file(lists.below(round % 4 == 0 ? 150 : 12), longest);
    loaded.load(files);
    uniqueoccur = static_cast<uint8_t>(lists.below(2));
    allowedweight = lists.below(2) == 0 ? 1000000 : static_cast<int>(lists.below(60));
    /* Every category's weight, up to the first that reaches the threshold, and its number, of both texts. */
    std::vector<int> judged;
    iniContentFilter();
    for (const string &text : lists.texts) {
      const int category = judge(text);
      judged.insert(judged.end(), categweight, categweight + (category == 0 ? files.size() : size_t(category)));
      judged.push_back(category);
    }
    for (const bool walked : {true, false}) {
      std::vector<int> weighed;
      iniContentFilter();
      for (const string &text : lists.texts) {
        int category = 0;
        for (int i = 0; i < static_cast<int>(files.size()) && category == 0; i++) {
          std::vector<InitialEntry> plain(256);
          const InitialEntry *const index = initiallists[i];
          for (size_t k = 0; index != nullptr && index[k].firstByte != 0; k++) plain[k] = index[k];
          scan(text, walked && index != nullptr ? plain.data() : index, i);
          weighed.push_back(totalweight);
          if (totalweight >= allowedweight) category = i + 1;
        }
        weighed.push_back(category);
      }
      ASSERT_EQ(judged, weighed) << "round " << round << " walked " << walked << " texts " << lists.texts[0] << "\n"
                                 << lists.texts[1];
    }
    int32_t scores[netsift::maxPhraseCategories] = {};
    iniContentFilter();
    (netsift::weighInOnePass(lists.texts[0].c_str(), static_cast<int>(lists.texts[0].size()), 0, scores) ? passes
                                                                                                         : walks)++;
  }
  EXPECT_GT(passes, 200);
  EXPECT_GT(walks, 5);
}

TEST(PhraseScan, SeesWhatAHostChanges) {
  Loaded loaded;
  loaded.load({"<ab>5<zz>1", "", "<b>4<zz>1"});
  allowedweight = 1000;
  iniContentFilter();
  const auto scores = [] {
    judge(" ab ab");
    return std::vector(categweight, categweight + numcategories1);
  };
  EXPECT_EQ(scores(), (std::vector{10, 0, 8}));
  phraselists[0]->weight = 7;
  EXPECT_EQ(scores(), (std::vector{14, 0, 8}));

  FifoNode *taken[30];
  for (FifoNode *&node : taken) node = getFromFifo();
  EXPECT_EQ(scores(), (std::vector{0, 0, 0}));
  for (FifoNode *node : taken) releaseToFifo(node);

  free(initiallists[2]);
  initiallists[2] = nullptr;
  EXPECT_EQ(scores(), (std::vector{14, 0, 0}));

  free(initiallists[0]);
  initiallists[0] = buildIniList(phraselists[2]); /* perhaps where the other one was */
  EXPECT_EQ(scores(), (std::vector{8, 0, 0}));

  std::vector<string> files(255, "<ab>5<zz>1");
  files[254] = "<ab>6<zz>1";
  loaded.load(files);
  allowedweight = 12;
  iniContentFilter();
  EXPECT_EQ(judge(" ab ab"), 255);
  EXPECT_EQ(categweight[253], 10);
}

/* After each first byte "x" is followed as after "x" alone and by one byte more: each wants a row of 200 steps. */
TEST(PhraseScan, ListsWhoseAutomatonWouldTakeTooMuchAreWalked) {
  string file;
  for (int byte = '\x81'; byte <= '~'; byte++) {
    if (byte != 0 && byte != '>' && byte != 'x') file += "<" + string(1, static_cast<char>(byte)) + "xd>1";
    if (byte == 'x') file += "<xa>1<xb>1<xc>1";
  }
  Loaded loaded;
  loaded.load({file});
  EXPECT_EQ(netsift::findPhraseAutomaton(), nullptr);
  allowedweight = 1000;
  iniContentFilter();
  judge(" xa\xe9xd");
  EXPECT_EQ(totalweight, 2);
}

/* So many long matches, one that ends after two bytes, and a phrase that begins while that one is still open. */
TEST(PhraseScan, AMatchThatWillFailTakesItsPlaceInThePool) {
  string text;
  for (char c = '!'; c <= '~'; c++) text += c == '>' ? ' ' : c;
  allowedweight = 1000;
  Loaded loaded;
  for (const auto &[open, failing, weight] : {std::tuple{28, 1, 7}, {29, 1, 0}, {29, 0, 7}}) {
    string file;
    const auto after = static_cast<size_t>(open) + 1;
    for (size_t i = 1; i < after; i++) file += "<" + text.substr(i, 60) + ">0";
    if (failing) file += "<" + text.substr(after, 2) + "+>0";
    loaded.load({file + "<" + text.substr(after + 1, 3) + ">7<zz>0"});
    iniContentFilter();
    scan(text, initiallists[0]);
    EXPECT_EQ(totalweight, weight) << open << " open, " << failing << " failing";
    judge(text);
    EXPECT_EQ(totalweight, weight) << open << " open, " << failing << " failing, in one pass";
  }
}

TEST(PhraseScan, NamesTheFirstCategoryThatReachesTheThreshold) {
  const ScratchRoot root;
  writeFile(root.config("Fruit.phrase"), "<apple>4\n<zz>1\n");
  writeFile(root.config("empty.phrase"), "");
  writeFile(root.config("Orchard.phrase"), "<apple>3\n<pear>9\n<zz>1\n");
  nameCategories({"Fruit", "empty", "missing", "Orchard"});
  const auto judge = [](const string &text) { return isOffensiveContent(text.c_str(), static_cast<int>(text.size())); };
  allowedweight = 12;
  for (int round = 0; round < 2; round++) { /* the second in place of the first */
    numcategories1 = 4;
    ASSERT_EQ(makePhraseLists(), 1);
    EXPECT_EQ(numcategories1, 2);
    iniContentFilter();
    EXPECT_EQ(judge("an apple, a pear"), 0); /* the last category fell out of the count */
  }
  numcategories1 = 4;
  iniContentFilter();
  const LogCapture log(4);
  EXPECT_EQ(judge("an apple, a pear"), 4);
  EXPECT_EQ(log.messages(),
            (std::vector<string>{" Fruit weight 4", " empty weight 0", " missing weight 0", "apple", "pear"}));
  EXPECT_TRUE(categweight[0] == 4 && categweight[3] == 12);
  allowedweight = 0;
  EXPECT_EQ(judge(""), 1);

  numcategories1 = 2; /* all four are released, as the leak check sees, in any order, and asked in any state */
  allowedweight = 12;
  for (void (*release)(void) : {freePhraseLists, relContentFilter, relContentFilter, freePhraseLists}) {
    release();
    EXPECT_EQ(judge("an apple, a pear"), 0);
  }
  allowedweight = 0;
  EXPECT_EQ(judge(""), 0); /* without a filter for the page not even a threshold that all reach */
  numcategories1 = 4;
  writeFile(root.config("missing.phrase"), "<broken");
  EXPECT_EQ(makePhraseLists(), -1);
  EXPECT_EQ(numcategories1, 4);
  freePhraseLists();
}

}  // namespace
