/* What judging a page costs a byte: HTML to text, and 10 categories of phrases, on ordinary pages and on the worst that
   can be made for each. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "content/htmlToText.h"
#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "content/ratings.h"
#include "state/settings.h"

namespace {

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

PhraseNode *listOf(std::vector<string> phrases) {
  std::sort(phrases.begin(), phrases.end());
  PhraseNode *list = nullptr;
  for (size_t i = phrases.size(); i > 0; i--) {
    auto *node = static_cast<PhraseNode *>(malloc(sizeof(PhraseNode)));
    *node = {strdup(phrases[i - 1].c_str()), 1, list};
    list = node;
  }
  return list;
}

/* How an index is used: with its look-up tables, or as a host's own without them, every run walked. */
enum class Way { lookedUp, lookedUpOnce, walked };

InitialEntry *withoutTables(InitialEntry *index) {
  auto *copy = static_cast<InitialEntry *>(calloc(256, sizeof(InitialEntry)));
  for (int i = 0; index[i].firstByte != 0; i++) copy[i] = index[i];
  free(index);
  return copy;
}

/* Ten categories that never reach the threshold, released with the object. */
struct Categories {
  Categories(const std::vector<std::vector<string>> &lists, Way way) {
    numcategories1 = categoryCount;
    uniqueoccur = way == Way::lookedUpOnce;
    allowedweight = INT32_MAX;
    phraselists = static_cast<PhraseNode **>(calloc(categoryCount, sizeof(PhraseNode *)));
    initiallists = static_cast<InitialEntry **>(calloc(categoryCount, sizeof(InitialEntry *)));
    categweight = static_cast<int32_t *>(calloc(categoryCount, sizeof(int32_t)));
    for (size_t i = 0; i < categoryCount; i++) {
      phraselists[i] = listOf(lists[i % lists.size()]);
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

void weigh(State &state, const string &text, const std::vector<std::vector<string>> &lists, Way way) {
  const Categories categories(lists, way);
  for (auto _ : state) {
    iniContentFilter();
    benchmark::DoNotOptimize(isOffensiveContent(text.c_str(), static_cast<int>(text.size())));
  }
  perByte(state, text.size());
}

void rate(State &state, const string &page) {
  icraenable = rsacenable = safesurfenable = 1;
  string buffer = page;
  for (auto _ : state) benchmark::DoNotOptimize(checkPICSRating(buffer.data()));
  perByte(state, page.size());
}

void add(const char *name, auto measure, auto... arguments) {
  benchmark::RegisterBenchmark(name, [=](State &state) { measure(state, arguments...); });
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

  const string text1 = textOf(page1), text64 = textOf(page64);
  const Lists crowded{crowdedPhrases()}, nested{nestedPhrases()};
  add("weigh/page 1 KB, 10 x 100", weigh, text1, small, Way::lookedUp);
  add("weigh/page 1 KB, 10 x 5000", weigh, text1, large, Way::lookedUp);
  add("weigh/page 64 KB, 10 x 100", weigh, text64, small, Way::lookedUp);
  add("weigh/page 64 KB, 10 x 5000", weigh, text64, large, Way::lookedUp);
  add("weigh/page 64 KB, 10 x 5000, walked", weigh, text64, large, Way::walked);
  add("weigh/no first byte, 10 x 5000", weigh, filled("0"), large, Way::lookedUp);
  add("weigh/all one first byte, 10 x 5000", weigh, filled("c"), large, Way::lookedUp);
  add("weigh/all one prefix of 10 x 5000", weigh, filled("aaz"), crowded, Way::lookedUp);
  add("weigh/all one prefix of 10 x 5000, walked", weigh, filled("aaz"), crowded, Way::walked);
  add("weigh/all nested prefixes, 10 x 126", weigh, filled("a"), nested, Way::lookedUp);
  add("weigh/all nested prefixes, once, 10 x 126", weigh, filled("a"), nested, Way::lookedUpOnce);

  add("rate/page 64 KB", rate, page64);
  add("rate/all <", rate, filled("<"));
  add("rate/all <meta>", rate, filled("<meta>"));
  add("rate/labels without lists", rate, filled("<meta \"pics-label\" icra rsac safesurf>"));
  add("rate/one list of all but keys", rate,
      "<meta \"pics-label\" icra rsac safesurf r (" + filled("v", pageSize - 50) + ")>");
  return true;
}();

}  // namespace
