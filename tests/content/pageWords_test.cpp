#include "content/pageWords.h"

#include "content/contentFilter.h"
#include "content/phraseList.h"
#include "tests/support/support.h"

namespace {

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

const string html = "text/html", plain = "text/plain", xml = "application/xml", script = "text/javascript";
const string zonk = "<zonk>100", whole = "<\"zonk\">100", cyrillic = "<Слово>100", kanji = "<言葉>100";

/* Each page as a whole, byte by byte and in threes; behind the bytes that may say what it is written in, too. */
class Cases : public PageWordsTest {
 protected:
  void expect(const string &type, const string &charset, const string &phrase, bool found,
              const std::vector<string> &pages) {
    load(phrase);
    for (const string &page : pages) {
      for (const size_t size : {SIZE_MAX, size_t{1}, size_t{3}}) {
        for (const size_t lead : {size_t{0}, behind}) {
          EXPECT_EQ(judge(type, charset, page, size, string(lead, ' ')).second, found)
              << type << " " << charset << " " << page << " for " << phrase << " by " << size;
        }
      }
    }
  }
  size_t behind = namingLength;
};

TEST_F(Cases, Charsets) {
  behind = 0;
  expect(html, "utf-16", zonk, true, {utf16("a zonk b", false), "some zonk here"});
  expect(html, "", zonk, true,
         {"\xFF\xFE" + utf16("a zonk b", false),
          utf16("a zonk b", false) /* shown so, since nobody names it: NULs are nothing */,
          "\x1B$B zonk" /* whether or not a browser guesses */});
  expect(html, "windows-1251", zonk, true, {"\xFE\xFF" + utf16("a zonk b", true) /* the mark goes first */});
  expect(html, "utf-16be", zonk, true, {utf16("z", true) + "\xD8\x01" + utf16(" zonk b", true) /* half a pair */});
  expect(html, "utf-16le", zonk, true, {"a zonk b" /* as if nobody named it */});
  expect(html, "windows-1251", cyrillic, true, {"\xF1\xEB\xCE\xC2\xCE"});
  expect(html, "", cyrillic, true,
         {"<meta charset='x-cp1251'>\xF1\xEB\xCE\xC2\xCE",
          "<!-- <meta charset=utf-8> --><p title='<meta charset=utf-8>'/><meta "
          "charset=windows-1251>\xF1\xEB\xCE\xC2\xCE"});
  expect(html, "greek7", zonk, true, {"some zonk here"});
  expect(html, "nonsense", cyrillic, true,
         {"<META http-equiv=Content-Type content='a; charset=\"cp1251\"'>\xF1\xEB\xCE\xC2\xCE"});
  expect(html, "", cyrillic, false,
         {"<meta name=x content='charset=cp1251'>\xF1\xEB\xCE\xC2\xCE",
          string(1100, ' ') + "<meta charset=cp1251>\xF1\xEB\xCE\xC2\xCE" /* too late */});
  expect(html, "utf-8", cyrillic, true, {"<meta charset=cp1251>\xD1\x81\xD0\xBB\xD0\xBE\xD0\xB2\xD0\xBE"});
  expect(html, "ibm037", zonk, true, {"a zonk b" /* browsers do not know it */});
  expect(html, "Shift_JIS", kanji, true, {"\x8C\xBE\x97t"});
  expect(html, "shift_jis", whole, true,
         {"\x81zonk zonk" /* half of one character takes up no ASCII of the next word */});
  expect(html, "iso-2022-jp", kanji, true, {"\x1B$B8@MU\x1B(B"});
  expect(html, "iso-2022-jp", zonk, true, {"zo\x1B(Bnk"});
  expect(html, "", kanji, true, {"\x1B$B8@MU\x1B(B"});
  expect(html, "utf-7", zonk, true,
         {"zo+AG4-k", "+zonk!", "+AG\x04zonk" /* a run without a whole unit */,
          "+2DXeB9g13fzYNd372DXd+A-" /* in letters of two units each */});
  expect(html, "euc-kr", "<말>100", true, {"\xB8\xBB"});
  expect(html, "gb2312", "<言>100", true, {"\xD1\xD4"});
  expect(html, "", "<café>100", true, {"caf\xE9" /* not UTF-8 */});
  expect(html, "latin1", "<café ã©>100", true, {"caf\xE9 \xC3\xA9"});
  expect(html, "utf-8", "<café é>100", true, {"caf\xE9 \xC3\xA9"});
  expect(xml, "", cyrillic, true, {"<?xml version='1.0' encoding='windows-1251'?><a>\xF1\xEB\xCE\xC2\xCE</a>"});
}

TEST_F(Cases, Forms) {
  expect(plain, "", whole, true,
         {"ZONK", "(zonk)", "\"zonk\"", "a\nzonk\r\nb", "zo\u00ADnk", "zo\u200B\u2060n\uFEFFk",
          "\uFF3A\uFF2F\uFF2E\uFF2B", "\U0001D433\U0001D428\U0001D427\U0001D424" /* mathematical letters */,
          "z\u0336o\u0336n\u0336k\u0336" /* struck out */, "\u201Czonk\u201D\u2026", "zonk\u2605", "z\x1Fonk"});
  expect(plain, "", whole, false, {"xzonk"});
  expect(plain, "", zonk, true, {"zonks"});
  expect(plain, "", "<CAFÉ>100", true, {"cafe\u0301"});
  expect(plain, "", "<cafe\u0301>100", true, {"caf\u00E9"});
  expect(plain, "", "<café>100", false, {"cafe"});
  expect(plain, "", "<caf\u1EB9\u0301>100", true, {"a cafe\u0323\u0301 b" /* marks in any order */});
  expect(plain, "", "<Straße>100", true, {"STRASSE"});
  expect(plain, "", "<ガ>100", true, {"\uFF76\uFF9E"});
  expect(plain, "", "<한>100", true, {"\u1112\u1161\u11AB"});
  expect(plain, "", "<zonk\tblorp>100", true, {"zonk   -  blorp"});
  expect(plain, "", "<don't>100", true, {"don\u2019t"});
  expect(plain, "", "<zonk blorp>100", true, {"zonk \u2014\u201C blorp"});
  expect(plain, "", "<🍕>100", true, {"pizza\U0001F355now"});
  expect(plain, "", "<й>100", true, {"\u0438\x1F\u0306"});
  expect(plain, "", "<zónk>100", true, {"zo\u009F\u0301nk"});
  expect(plain, "", "<कि की>100", true, {"की कि कि की" /* as it was met before */});
}

TEST_F(Cases, Markup) {
  expect(html, "", whole, true,
         {"zonk", "<title>zonk</title>", "zo<b>n</b>k", "zo<script>1</script>nk", "a<br>zonk<p>b", "zo<!-- > a -->nk",
          "<!-->zonk<!-- -->", "<!--->zonk<!-- -->", "<!-- --!>zonk"});
  expect(html, "", whole, true,
         {"<a href='>'>zonk", "1 < 2 zonk", "zo</>nk<", "<img alt='zonk'>", "<a TITLE=zonk>",
          "<a aria-label = 'a z&#x6F;nk'>", "<meta name=description content='zonk'>", "<input type=submit value=zonk>",
          "zo<b title='a b'>nk" /* what is beside the text does not part it */});
  expect(html, "", whole, true,
         {"z&#111;n&#x6b", "z&#0000000000000111;nk&#", "zo&shy;nk&zwnj;", "a&nbsp;zonk&hellip;", "zonk&notit;"});
  expect(
      html, "", whole, true,
      {"<style>a{content:'zonk'}</style>", "<script>a<b;'</scr'+'zonk'</script>",
       "<script>w('z\\u006f\\x6ek')</script>", "<script><!--<script></script><!--</script>zonk",
       "<script><!-- x --><!-- </script>zonk -->", "<script><!-- --><script></script>zo<b>nk",
       "<textarea><!-- </textarea>zonk -->", "<noscript><!-- </noscript>zonk -->", "<textarea>z&#111;nk</textarea>"});
  expect(html, "", whole, true,
         {"<svg><text><![CDATA[<a zonk>]]></text></svg>",
          "<svg><b><script>'<a x=\"'</script>zonk\">" /* the b ends the svg */,
          "<svg><section><style><a x='</style><a y=\"'>zonk<b z='\"", "<svg><title><style><a x='</style>zonk'>",
          "<svg><title>a</title><style><a x='</style><a y=\"'>zonk<b z='\"", "<svg></svg><style><a x='</style>zonk'>",
          "<plaintext><b zonk>"});
  expect(html, "", "<й>100", true, {"и<b>\u0306</b>" /* a mark of a tag's own */});
  expect(html, "", zonk, false,
         {"zo<br>nk", "<!-- zonk -->", "<a href=\"x>zonk\">", "<?zonk?><!zonk></ zonk>", "<a id=zonk data-x='zonk'>",
          "<![CDATA[zonk>"});
  expect(html, "", zonk, true, {"<3zonk"});
  expect(html, "", "<café café>100", true, {"caf&eacute caf&Eacute;"});
  expect(html, "", "<\" alphazonk\">100", true, {"&alphazonk"});
  expect(html, "", "<zonk copy 1>100", true, {"<a title='zonk&copy=1'>"});
  expect(html, "", "<a zonk b>100", true, {"a&zonk;b" /* no reference at all */});
  expect("application/xhtml+xml", "", "<zonk>100", true, {"<p><![CDATA[<zonk]]>&#122;</p>"});
  expect(xml, "", whole, true, {"<item>zonk</item><item>s</item>"});
  expect("image/svg+xml", "", whole, true, {"<text>zo<tspan>nk</tspan></text>"});
  expect("", "", whole, true, {" \n<p>zo<b>nk", "a <zonk>"});
  expect("multipart/byteranges", "", whole, true, {"--b\r\nContent-Type: text/html\r\n\r\nzonk\r\n--b--"});
  expect("application/json", "", whole, true, {"{\"a\":\"zo\\u006Ek\\nb\"}"});
  expect(script, "", whole, true, {"'\\ud835\\udc33onk'"});
  expect(script, "", "<a nzonk>100", true, {"'a\\\\nzonk'"});
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

/* What has come is told as if it were all, its last word too; but that condemns nothing before it has ended. */
TEST_F(PageWordsTest, APageThatStopsIsJudged) {
  load("<\"zonk\">60");
  for (const size_t before : {size_t{0}, size_t{2000}}) {
    iniContentFilter();
    PageWords words{html, "", {}, {}};
    const string start = string(before, '-') + "<p>zonk a ";
    EXPECT_EQ(judgeWords(words, start + "<b>zon", false) + words.atEnd, 0);
    EXPECT_EQ(judgeWords(words, "k", false), 0);
    EXPECT_EQ(words.atEnd, 1);
    EXPECT_EQ(judgeWords(words, ".", false), 1);
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
