/* What judging a page costs a byte: HTML to text, and 10 categories of phrases, on ordinary pages and on the worst that
   can be made for each. */
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "content/charset.h"
#include "content/htmlToText.h"
#include "content/pageWords.h"
#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "content/ratings.h"
#include "state/settings.h"

namespace {

using namespace netsift;
using benchmark::Counter;
using benchmark::State;
using std::string;

constexpr int categoryCount = 10;
constexpr size_t pageSize = 65535;

void perByte(State &state, size_t bytes) {
  state.counters["per_byte"] =
      Counter(static_cast<double>(bytes), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

string filled(const string &pattern, size_t size = pageSize) {
  string text;
  while (text.size() < size) text += pattern;
  return text.substr(0, size);
}

/* One word in eight of a page is one that phrases are made of. */
constexpr const char *commonWords[] = {
    "the",   "of",   "and",   "to",    "in",   "is",    "that",   "for",   "it",   "was",  "with",   "as",
    "are",   "be",   "this",  "from",  "have", "or",    "had",    "by",    "but",  "some", "what",   "there",
    "we",    "can",  "out",   "other", "were", "all",   "your",   "when",  "use",  "word", "how",    "said",
    "each",  "she",  "which", "their", "time", "will",  "way",    "about", "many", "then", "them",   "would",
    "write", "like", "so",    "these", "her",  "long",  "make",   "thing", "see",  "him",  "two",    "has",
    "look",  "more", "day",   "could", "go",   "come",  "did",    "sound", "no",   "most", "number", "who",
    "over",  "know", "water", "than",  "call", "first", "people", "may",   "down", "side", "been",   "now"};
constexpr const char *topicWords[] = {
    "garden",     "planting", "harvest",  "orchard",  "tomato",    "basil",    "pruning",    "compost",   "seedling",
    "greenhouse", "bicycle",  "saddle",   "pedal",    "racing",    "mountain", "trail",      "helmet",    "chain",
    "touring",    "workshop", "violin",   "concerto", "orchestra", "sonata",   "trumpet",    "chamber",   "melody",
    "rhythm",     "quartet",  "recital",  "kitchen",  "recipe",    "baking",   "pastry",     "saffron",   "simmer",
    "roasted",    "vinegar",  "dumpling", "caramel",  "harbour",   "sailing",  "lighthouse", "anchor",    "voyage",
    "compass",    "current",  "rigging",  "captain",  "regatta",   "museum",   "painting",   "sculpture", "gallery",
    "portrait",   "canvas",   "etching",  "fresco",   "curator",   "restorer"};

const char *anyOf(std::span<const char *const> words, std::mt19937 &random) { return words[random() % words.size()]; }

string randomWord(std::mt19937 &random) {
  return random() % 8 != 0 ? anyOf(commonWords, random) : anyOf(topicWords, random);
}

/* A page as preProcessBody leaves it: lower case, single blanks; a third of it markup. */
string ordinaryPage(size_t size) {
  std::mt19937 random(3);
  string page = "<html><head><title>a page</title><meta name=\"viewport\" content=\"width=device-width\"></head><body>";
  while (page.size() < size) {
    page += "<div class=\"entry wide\"> <h2><a href=\"/archive/" + randomWord(random) + ".html\">" +
            randomWord(random) + "</a></h2> <p>";
    for (int i = 0; i < 60; i++) {
      page += randomWord(random) + (i % 20 == 7    ? " &amp; "
                                    : i % 20 == 13 ? " <b>&#8211;</b> "
                                    : i % 10 == 9  ? ". "
                                                   : " ");
    }
    page += "<font face=\"arial\" color=\"#336699\">" + randomWord(random) + "</font></p> </div> ";
  }
  return page.substr(0, size);
}

/* The same in other letters. */
string filledPage(const string &paragraph) {
  string page = "<html><body>";
  while (page.size() < pageSize) page += "<p>" + paragraph + "</p> ";
  return page.substr(0, pageSize);
}

string textOf(string page) {
  auto length = static_cast<int32_t>(page.size());
  ConvertHTMLToText(page.data(), &length);
  return page.substr(0, static_cast<size_t>(length));
}

std::vector<string> ordinaryPhrases(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<string> phrases(count);
  for (string &phrase : phrases) {
    phrase = string(anyOf(topicWords, random)) + (random() % 4 == 0 ? "" : " ") + anyOf(topicWords, random);
    if (random() % 3 == 0) phrase += string(" ") + anyOf(commonWords, random);
    if (random() % 4 == 0) phrase = " " + phrase + " ";
  }
  return phrases;
}

/* 5,000 phrases that share two bytes and differ in the third: the text "aaz" passes all of them. */
std::vector<string> crowdedPhrases() {
  std::vector<string> phrases = ordinaryPhrases(5000, 1);
  for (string &phrase : phrases) phrase = "aa" + phrase + "!";
  return phrases;
}

/* "a", "aa", "aaa", ...: every position opens a match, and every open match is at a phrase's end. */
std::vector<string> nestedPhrases() {
  std::vector<string> phrases;
  for (size_t length = 1; length <= 126; length++) phrases.emplace_back(length, 'a');
  return phrases;
}

/* A folder with the lists' files, made the installroot; removed with the object. */
struct ListFiles {
  std::filesystem::path root = std::filesystem::temp_directory_path() / ("content_bench." + std::to_string(getpid()));
  string rootText = root.string();

  explicit ListFiles(std::vector<std::vector<string>> lists) {
    std::filesystem::create_directories(root / "opt/Velmora/etc/netsift");
    for (size_t i = 0; i < lists.size(); i++) {
      std::sort(lists[i].begin(), lists[i].end());
      std::ofstream file(root / "opt/Velmora/etc/netsift" / (std::to_string(i) + ".phrase"));
      for (const string &phrase : lists[i]) file << '<' << phrase << ">1\n";
    }
    installroot = rootText.data();
  }
  ~ListFiles() {
    installroot = nullptr;
    std::filesystem::remove_all(root);
  }
};

/* How lists are weighed: all in one pass; each phrase counted once; list by list with the look-up tables of each; and
   list by list, every run walked, as an index of a host's own is. */
enum class Way { onePass, onePassOnce, listByList, walked };

InitialEntry *withoutTables(InitialEntry *index) {
  auto *copy = static_cast<InitialEntry *>(calloc(256, sizeof(InitialEntry)));
  for (int i = 0; index[i].firstByte != 0; i++) copy[i] = index[i];
  free(index);
  return copy;
}

/* Ten categories that never reach the threshold, released with the object. */
struct Categories {
  string names[categoryCount];
  char *files[categoryCount];

  Categories(const std::vector<std::vector<string>> &lists, Way way) {
    const ListFiles folder(lists);
    for (size_t i = 0; i < categoryCount; i++) files[i] = (names[i] = std::to_string(i % lists.size())).data();
    categfiles1 = files;
    numcategories1 = categoryCount;
    uniqueoccur = way == Way::onePassOnce;
    allowedweight = INT32_MAX;
    if (makePhraseLists() != 1) abort();
    if (way != Way::listByList && way != Way::walked) return;
    for (size_t i = 0; i < categoryCount; i++) {
      free(initiallists[i]);
      initiallists[i] = buildIniList(phraselists[i]);
      if (way == Way::walked) initiallists[i] = withoutTables(initiallists[i]);
    }
  }
  ~Categories() {
    freePhraseLists();
    relContentFilter();
  }
};

void convert(State &state, const string &page) {
  string buffer = page;
  for (auto _ : state) {
    memcpy(buffer.data(), page.data(), page.size());
    auto length = static_cast<int32_t>(page.size());
    ConvertHTMLToText(buffer.data(), &length);
    benchmark::DoNotOptimize(buffer.data());
  }
  perByte(state, page.size());
}

/* From a page's bytes to the text of its words, 64 KB at a time. */
void readWords(State &state, const string &charset, const string &page) {
  for (auto _ : state) {
    Decoder decoder = openDecoder(charset);
    PageText text{.kind = TextKind::html};
    string characters;
    decodeText(decoder, page, true, characters);
    readPage(text, characters);
    endPage(text);
    benchmark::DoNotOptimize(text.shown.text.data());
  }
  perByte(state, page.size());
}

/* All of a page's judging where words are matched. */
void judge(State &state, const string &page, const std::vector<std::vector<string>> &lists) {
  StrictHttp = STRICT_HTTP;
  ContentMatch = CONTENT_WORDS;
  const Categories categories(lists, Way::onePass);
  for (auto _ : state) {
    iniContentFilter();
    PageWords words{"text/html", "", {}, {}};
    benchmark::DoNotOptimize(judgeWords(words, page, true));
  }
  perByte(state, page.size());
  StrictHttp = ContentMatch = 0;
}

void weigh(State &state, const string &text, const std::vector<std::vector<string>> &lists, Way way) {
  const Categories categories(lists, way);
  for (auto _ : state) {
    iniContentFilter();
    benchmark::DoNotOptimize(isOffensiveContent(text.c_str(), static_cast<int>(text.size())));
  }
  perByte(state, text.size());
}

/* Reading the files, indexing them and building the automaton. */
void load(State &state, const std::vector<std::vector<string>> &lists) {
  const Categories categories(lists, Way::onePass);
  const ListFiles folder(lists);
  for (auto _ : state) {
    numcategories1 = categoryCount;
    benchmark::DoNotOptimize(makePhraseLists());
  }
}

void rate(State &state, const string &page) {
  icraenable = rsacenable = safesurfenable = 1;
  string buffer = page;
  for (auto _ : state) benchmark::DoNotOptimize(checkPICSRating(buffer.data()));
  perByte(state, page.size());
}

void add(const string &name, auto measure, auto... arguments) {
  benchmark::RegisterBenchmark(name.c_str(), [=](State &state) { measure(state, arguments...); });
}

std::vector<std::vector<string>> tenLists(size_t count) {
  std::vector<std::vector<string>> lists;
  for (unsigned i = 0; i < categoryCount; i++) lists.push_back(ordinaryPhrases(count, i + 10));
  return lists;
}

const bool registered = [] {
  using Lists = std::vector<std::vector<string>>;
  const Lists small = tenLists(100), large = tenLists(5000);
  const string page1 = ordinaryPage(1024), page64 = ordinaryPage(pageSize);

  add("convert/page 1 KB", convert, page1);
  add("convert/page 64 KB", convert, page64);
  add("convert/all <", convert, filled("<"));
  add("convert/all <>", convert, filled("<>"));
  add("convert/all <b> and blanks", convert, filled("<b>  "));
  add("convert/all &", convert, filled("&"));
  add("convert/all &#", convert, filled("&#"));
  add("convert/one tag", convert, "<b" + filled(" ", pageSize - 3) + ">");
  add("convert/one font tag of blanks", convert, "<f" + filled(" = ", pageSize - 3) + ">");
  add("convert/one font tag of almost words", convert, "<f" + filled("color=whit", pageSize - 3) + ">");
  add("convert/all font tags", convert, filled("<f>"));
  add("convert/all white font tags", convert, filled("<font color = white>"));
  add("convert/font tags before one >", convert, filled("<font ", pageSize - 1) + ">");

  add("words/page 1 KB", readWords, "", page1);
  add("words/page 64 KB", readWords, "", page64);
  add("words/page 64 KB, windows-1252", readWords, "CP1252", page64);
  add("words/Russian page 64 KB", readWords, "", filledPage("Слово за слово, и так целая <b>страница</b> из слов."));
  add("words/Chinese page 64 KB", readWords, "", filledPage("一个字接一个字，整页的<b>文字</b>就是这样。"));
  add("words/Hindi page 64 KB", readWords, "", filledPage("शब्द के बाद शब्द, और इस तरह पूरा <b>पृष्ठ</b> बनता है।"));
  add("words/all <b>", readWords, "", filled("<b>"));
  add("words/all <dfn x=y>", readWords, "", filled("<dfn x=y>"));
  add("words/all &amp;", readWords, "", filled("&amp;"));
  add("words/all &CounterClockwiseContourIntegral;", readWords, "", filled("&CounterClockwiseContourIntegral;"));
  add("words/all title='a'", readWords, "", filled("<b title='a'>"));
  add("words/all marks", readWords, "", filled("a\xCC\x81\xCC\xA3"));
  add("words/all ligatures", readWords, "", filled("\xEF\xB7\xBA"));
  add("words/one script of escapes", readWords, "", "<script>" + filled("\\u0041"));
  add("judge/page 64 KB, 10 x 5000", judge, page64, large);

  const string text1 = textOf(page1), text64 = textOf(page64);
  const Lists crowded{crowdedPhrases()}, nested{nestedPhrases()};
  for (const auto &[name, way] : {std::pair{"", Way::onePass}, {", list by list", Way::listByList}}) {
    add(string("weigh/page 1 KB, 10 x 100") + name, weigh, text1, small, way);
    add(string("weigh/page 1 KB, 10 x 5000") + name, weigh, text1, large, way);
    add(string("weigh/page 64 KB, 10 x 100") + name, weigh, text64, small, way);
    add(string("weigh/page 64 KB, 10 x 5000") + name, weigh, text64, large, way);
    add(string("weigh/no first byte, 10 x 5000") + name, weigh, filled("0"), large, way);
    add(string("weigh/all one first byte, 10 x 5000") + name, weigh, filled("c"), large, way);
    add(string("weigh/all one prefix of 10 x 5000") + name, weigh, filled("aaz"), crowded, way);
    add(string("weigh/all nested prefixes, 10 x 126") + name, weigh, filled("a"), nested, way);
  }
  add("weigh/all nested prefixes, once, 10 x 126", weigh, filled("a"), nested, Way::onePassOnce);
  add("weigh/page 64 KB, 10 x 5000, walked", weigh, text64, large, Way::walked);
  add("weigh/all one prefix of 10 x 5000, walked", weigh, filled("aaz"), crowded, Way::walked);
  add("load/10 x 5000", load, large);

  add("rate/page 64 KB", rate, page64);
  add("rate/all <", rate, filled("<"));
  add("rate/all <meta>", rate, filled("<meta>"));
  add("rate/labels without lists", rate, filled("<meta \"pics-label\" icra rsac safesurf>"));
  add("rate/one list of all but keys", rate,
      "<meta \"pics-label\" icra rsac safesurf r (" + filled("v", pageSize - 50) + ")>");
  return true;
}();

}  // namespace
