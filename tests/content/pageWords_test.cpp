#include "content/pageWords.h"

#include "content/contentFilter.h"
#include "content/phraseList.h"
#include "tests/support/support.h"

namespace {

using namespace netsift;
using namespace netsift::test;
using std::string;

constexpr int enough = 100;

/* One category of these records, loaded to be compared as words. */
class PageWordsTest : public testing::Test {
 protected:
  PageWordsTest() {
    StrictHttp = STRICT_HTTP;
    ContentMatch = CONTENT_WORDS;
    allowedweight = enough;
    uniqueoccur = 0;
    categfiles1 = names_;
  }
  ~PageWordsTest() override {
    freePhraseLists();
    relContentFilter();
    StrictHttp = ContentMatch = 0;
  }

  void load(const string &records) {
    writeFile(root_.config("words.phrase"), records);
    numcategories1 = 1;
    ASSERT_EQ(makePhraseLists(), 1) << records;
  }

  /* The page's score, and whether it was condemned: both as it comes in one piece, and in pieces of `size`, behind what
     comes first. */
  std::pair<int, bool> judge(const string &type, const string &charset, const string &page, size_t size = SIZE_MAX,
                             const string &lead = "") {
    iniContentFilter();
    PageWords words{type, charset, {}, {}};
    bool condemned = judgeWords(words, lead, false) != 0;
    for (size_t at = 0; at < page.size() && !condemned; at += std::min(size, page.size() - at)) {
      const string piece = page.substr(at, size);
      const GuardedText guarded(piece, false);
      condemned = judgeWords(words, {guarded.get(), piece.size()}, at + piece.size() == page.size()) != 0;
    }
    return {words.readings.empty() ? 0 : words.readings[0].scores[0], condemned};
  }

 private:
  ScratchRoot root_;
  char name_[6] = "words";
  char *names_[1] = {name_};
};

string utf16(const string &ascii, bool big) {
  string text;
  for (const char c : ascii) text += big ? string{'\0', c} : string{c, '\0'};
  return text;
}

struct Case {
  string type, charset, page, phrase;
  bool found;
};

const string html = "text/html", plain = "text/plain", xml = "application/xml", script = "text/javascript";
const string zonk = "<zonk>100", whole = "<\"zonk\">100", cyrillic = "<Слово>100", kanji = "<言葉>100";

/* Each page as a whole, byte by byte and in threes; behind the bytes that may say what it is written in, too. */
class Cases : public PageWordsTest {
 protected:
  void expect(std::initializer_list<Case> cases, bool namesInPages = false) {
    for (const Case &each : cases) {
      load(each.phrase);
      for (const size_t size : {SIZE_MAX, size_t{1}, size_t{3}}) {
        for (const size_t lead : {size_t{0}, namesInPages ? 0 : namingLength}) {
          EXPECT_EQ(judge(each.type, each.charset, each.page, size, string(lead, ' ')).second, each.found)
              << each.type << " " << each.charset << " " << each.page << " for " << each.phrase << " by " << size;
        }
      }
    }
  }
};

TEST_F(Cases, Charsets) {
  expect(
      {
          {html, "utf-16", utf16("a zonk b", false), zonk, true},
          {html, "", "\xFF\xFE" + utf16("a zonk b", false), zonk, true},
          {html, "windows-1251", "\xFE\xFF" + utf16("a zonk b", true), zonk, true}, /* the mark goes first */
          {html, "utf-16be", utf16("z", true) + "\xD8\x01" + utf16(" zonk b", true), zonk, true}, /* half a pair */
          {html, "", utf16("a zonk b", false), zonk, true}, /* shown so, since nobody names it: NULs are nothing */
          {html, "utf-16le", "a zonk b", zonk, true},       /* as if nobody named it */
          {html, "windows-1251", "\xF1\xEB\xCE\xC2\xCE", cyrillic, true},
          {html, "", "<meta charset='x-cp1251'>\xF1\xEB\xCE\xC2\xCE", cyrillic, true},
          {html, "greek7", "some zonk here", zonk, true},
          {html, "utf-16", "some zonk here", zonk, true},
          {html, "nonsense", "<META http-equiv=Content-Type content='a; charset=\"cp1251\"'>\xF1\xEB\xCE\xC2\xCE",
           cyrillic, true},
          {html, "",
           "<!-- <meta charset=utf-8> --><p title='<meta charset=utf-8>'/><meta "
           "charset=windows-1251>\xF1\xEB\xCE\xC2\xCE",
           cyrillic, true},
          {html, "", "<meta name=x content='charset=cp1251'>\xF1\xEB\xCE\xC2\xCE", cyrillic, false},
          {html, "utf-8", "<meta charset=cp1251>\xD1\x81\xD0\xBB\xD0\xBE\xD0\xB2\xD0\xBE", cyrillic, true},
          {html, "", string(1100, ' ') + "<meta charset=cp1251>\xF1\xEB\xCE\xC2\xCE", cyrillic, false}, /* too late */
          {html, "ibm037", "a zonk b", zonk, true}, /* browsers do not know it */
          {html, "Shift_JIS", "\x8C\xBE\x97t", kanji, true},
          {html, "shift_jis", "\x81zonk zonk", whole,
           true}, /* half of one character takes up no ASCII of the next word */
          {html, "iso-2022-jp", "\x1B$B8@MU\x1B(B", kanji, true},
          {html, "iso-2022-jp", "zo\x1B(Bnk", zonk, true},
          {html, "", "\x1B$B zonk", zonk, true}, /* whether or not a browser guesses */
          {html, "", "\x1B$B8@MU\x1B(B", kanji, true},
          {html, "utf-7", "zo+AG4-k", zonk, true},
          {html, "utf-7", "+zonk!", zonk, true},
          {html, "utf-7", "+AG\x04zonk", zonk, true},              /* a run without a whole unit */
          {html, "utf-7", "+2DXeB9g13fzYNd372DXd+A-", zonk, true}, /* in letters of two units each */
          {html, "euc-kr", "\xB8\xBB", "<말>100", true},
          {html, "gb2312", "\xD1\xD4", "<言>100", true},
          {html, "", "caf\xE9", "<café>100", true}, /* not UTF-8 */
          {html, "latin1", "caf\xE9 \xC3\xA9", "<café ã©>100", true},
          {html, "utf-8", "caf\xE9 \xC3\xA9", "<café é>100", true},
          {xml, "", "<?xml version='1.0' encoding='windows-1251'?><a>\xF1\xEB\xCE\xC2\xCE</a>", cyrillic, true},
      },
      true);
}

TEST_F(Cases, Forms) {
  expect({
      {plain, "", "ZONK", whole, true},
      {plain, "", "(zonk)", whole, true},
      {plain, "", "\"zonk\"", whole, true},
      {plain, "", "a\nzonk\r\nb", whole, true},
      {plain, "", "xzonk", whole, false},
      {plain, "", "zonks", zonk, true},
      {plain, "", "zo\u00ADnk", whole, true},
      {plain, "", "zo\u200B\u2060n\uFEFFk", whole, true},
      {plain, "", "\uFF3A\uFF2F\uFF2E\uFF2B", whole, true},
      {plain, "", "\U0001D433\U0001D428\U0001D427\U0001D424", whole, true}, /* mathematical letters */
      {plain, "", "z\u0336o\u0336n\u0336k\u0336", whole, true},             /* struck out */
      {plain, "", "\u201Czonk\u201D\u2026", whole, true},
      {plain, "", "zonk\u2605", whole, true},
      {plain, "", "cafe\u0301", "<CAFÉ>100", true},
      {plain, "", "caf\u00E9", "<cafe\u0301>100", true},
      {plain, "", "cafe", "<café>100", false},
      {plain, "", "a cafe\u0323\u0301 b", "<caf\u1EB9\u0301>100", true}, /* marks in any order */
      {plain, "", "STRASSE", "<Straße>100", true},
      {plain, "", "\uFF76\uFF9E", "<ガ>100", true},
      {plain, "", "\u1112\u1161\u11AB", "<한>100", true},
      {plain, "", "zonk   -  blorp", "<zonk\tblorp>100", true},
      {plain, "", "don\u2019t", "<don't>100", true},
      {plain, "", "zonk \u2014\u201C blorp", "<zonk blorp>100", true},
      {plain, "", "pizza\U0001F355now", "<🍕>100", true},
      {plain, "", "z\x1Fonk", whole, true},
      {plain, "", "\u0438\x1F\u0306", "<й>100", true},
  });
}

TEST_F(Cases, Markup) {
  expect({
      {html, "", "zonk", whole, true},
      {html, "", "<title>zonk</title>", whole, true},
      {html, "", "zo<b>n</b>k", whole, true},
      {html, "", "zo<script>1</script>nk", whole, true},
      {html, "", "и<b>\u0306</b>", "<й>100", true}, /* a mark of a tag's own */
      {html, "", "a<br>zonk<p>b", whole, true},
      {html, "", "zo<br>nk", zonk, false},
      {html, "", "zo<!-- > a -->nk", whole, true},
      {html, "", "<!-->zonk<!-- -->", whole, true},
      {html, "", "<!--->zonk<!-- -->", whole, true},
      {html, "", "<!-- --!>zonk", whole, true},
      {html, "", "<!-- zonk -->", zonk, false},
      {html, "", "<a href='>'>zonk", whole, true},
      {html, "", "<a href=\"x>zonk\">", zonk, false},
      {html, "", "1 < 2 zonk", whole, true},
      {html, "", "<3zonk", zonk, true},
      {html, "", "zo</>nk<", whole, true},
      {html, "", "<?zonk?><!zonk></ zonk>", zonk, false},
      {html, "", "<img alt='zonk'>", whole, true},
      {html, "", "<a TITLE=zonk>", whole, true},
      {html, "", "<a aria-label = 'a z&#x6F;nk'>", whole, true},
      {html, "", "<meta name=description content='zonk'>", whole, true},
      {html, "", "<input type=submit value=zonk>", whole, true},
      {html, "", "<a id=zonk data-x='zonk'>", zonk, false},
      {html, "", "zo<b title='a b'>nk", whole, true}, /* what is beside the text does not part it */
      {html, "", "z&#111;n&#x6b", whole, true},
      {html, "", "z&#0000000000000111;nk&#", whole, true},
      {html, "", "zo&shy;nk&zwnj;", whole, true},
      {html, "", "a&nbsp;zonk&hellip;", whole, true},
      {html, "", "caf&eacute caf&Eacute;", "<café café>100", true},
      {html, "", "zonk&notit;", whole, true},
      {html, "", "&alphazonk", "<\" alphazonk\">100", true},
      {html, "", "<a title='zonk&copy=1'>", "<zonk copy 1>100", true},
      {html, "", "a&zonk;b", "<a zonk b>100", true}, /* no reference at all */
      {html, "", "<style>a{content:'zonk'}</style>", whole, true},
      {html, "", "<script>a<b;'</scr'+'zonk'</script>", whole, true},
      {html, "", "<script>w('z\\u006f\\x6ek')</script>", whole, true},
      {html, "", "<script><!--<script></script><!--</script>zonk", whole, true},
      {html, "", "<script><!-- x --><!-- </script>zonk -->", whole, true},
      {html, "", "<script><!-- --><script></script>zo<b>nk", whole, true},
      {html, "", "<textarea><!-- </textarea>zonk -->", whole, true},
      {html, "", "<noscript><!-- </noscript>zonk -->", whole, true},
      {html, "", "<textarea>z&#111;nk</textarea>", whole, true},
      {html, "", "<svg><text><![CDATA[<a zonk>]]></text></svg>", whole, true},
      {html, "", "<![CDATA[zonk>", zonk, false},
      {html, "", "<svg><b><script>'<a x=\"'</script>zonk\">", whole, true}, /* the b ends the svg */
      {html, "", "<svg><section><style><a x='</style><a y=\"'>zonk<b z='\"", whole, true},
      {html, "", "<svg><title><style><a x='</style>zonk'>", whole, true},
      {html, "", "<svg><title>a</title><style><a x='</style><a y=\"'>zonk<b z='\"", whole, true},
      {html, "", "<svg></svg><style><a x='</style>zonk'>", whole, true},
      {html, "", "<plaintext><b zonk>", whole, true},
      {"application/xhtml+xml", "", "<p><![CDATA[<zonk]]>&#122;</p>", "<zonk>100", true},
      {xml, "", "<item>zonk</item><item>s</item>", whole, true},
      {"image/svg+xml", "", "<text>zo<tspan>nk</tspan></text>", whole, true},
      {"", "", " \n<p>zo<b>nk", whole, true},
      {"", "", "a <zonk>", whole, true},
      {"multipart/byteranges", "", "--b\r\nContent-Type: text/html\r\n\r\nzonk\r\n--b--", whole, true},
      {"application/json", "", "{\"a\":\"zo\\u006Ek\\nb\"}", whole, true},
      {script, "", "'\\ud835\\udc33onk'", whole, true},
      {script, "", "'a\\\\nzonk'", "<a nzonk>100", true},
  });
}

/* Files as people write them: in any order, in capitals, the same twice; and the last of them counts too. */
TEST_F(PageWordsTest, LoadsListsAsTheyAreWritten) {
  load("<zonk>5\n<Zonk>7\n<!>90\n<слово>2\n<словом>3\n<x слово>20\n<Blorp!>1\n<ab>1");
  EXPECT_EQ(judge(plain, "", "blorp").first, 1); /* "blorp " */
  EXPECT_EQ(judge(plain, "", "zonk, !!").first, 5);
  EXPECT_EQ(judge(plain, "", "СЛОВОМ").first, 2 + 3);
  EXPECT_EQ(judge(plain, "", "x словом").first, 20 + 3); /* of those that end at one place the longest counts */
  EXPECT_EQ(judge(plain, "", "ab").first, 1);
  load("<" + string(120, 'x') + "\uFDFA>5\n<y>3");
  EXPECT_EQ(judge(plain, "", "y" + string(120, 'x') + "\uFDFA").first, 8);
}

/* A page is weighed the same however it comes, and all of it, in one pass or list by list. */
TEST_F(PageWordsTest, ScoresGoOnOverTheWholePage) {
  load("<zonk>1\n<nk \"z>1\n<\"zonk\">2");
  string page;
  for (int i = 0; i < 600; i++) page += i % 50 == 0 ? "<p>zonk " : i % 7 == 0 ? "<b title='zonk'>x</b>" : "harmless ";
  allowedweight = 100000;
  const int expected = judge(html, "", page).first;
  EXPECT_EQ(expected, (1 + 2) * (12 + 84) + 83); /* each ends twice, and 83 times one title meets the next */
  std::mt19937 random(5);
  for (const bool inOnePass : {true, false}) {
    if (!inOnePass) {
      free(initiallists[0]);
      initiallists[0] = buildIniList(phraselists[0]);
    }
    for (const size_t size : {size_t{1}, size_t{7}, size_t{255}, size_t{256}, size_t{1000}, page.size() - 1}) {
      EXPECT_EQ(judge(html, "", page, size).first, expected) << size << inOnePass;
    }
  }
  uniqueoccur = 1;
  EXPECT_EQ(judge(html, "", page, 100).first, 1 + 1 + 2);
}

/* What has come is judged as if it were all: its last word too, but that counts once. */
TEST_F(PageWordsTest, APageThatStopsIsJudged) {
  load("<\"zonk\">60");
  for (const size_t before : {size_t{0}, size_t{2000}}) {
    iniContentFilter();
    PageWords words{html, "", {}, {}};
    const string start = string(before, '-') + "<p>zonk a ";
    EXPECT_EQ(judgeWords(words, start + "<b>zon", false), 0);
    EXPECT_EQ(judgeWords(words, "k", false), 1);
    PageWords other{html, "", {}, {}};
    iniContentFilter();
    EXPECT_EQ(judgeWords(other, start.substr(0, start.size() - 3), false), 0);
    EXPECT_EQ(judgeWords(other, "s zon", false), 0);
    EXPECT_EQ(judgeWords(other, "ked", true), 0);
    EXPECT_EQ(other.readings[0].scores[0], 0);
    uniqueoccur = 1; /* what was counted for an end that it was not can still be counted */
    PageWords once{html, "", {}, {}};
    iniContentFilter();
    EXPECT_EQ(judgeWords(once, string(before, '-') + "<p>zonk", false) + judgeWords(once, " a", true), 0);
    EXPECT_EQ(once.readings[0].scores[0], 60);
    uniqueoccur = 0;
  }
}

TEST(JudgedTypes, HaveAStarForAnyRun) {
  strcpy(JudgedTypes[0], "text/*");
  strcpy(JudgedTypes[1], "application/json");
  for (const char *type : {"text/html", "text/x", "application/json", "", "x", "*/*", "unknown/unknown"}) {
    EXPECT_TRUE(isJudgedType(type)) << type;
  }
  for (const char *type : {"application/jsonp", "image/png", "application/text/html"}) EXPECT_FALSE(isJudgedType(type));
}

}  // namespace
