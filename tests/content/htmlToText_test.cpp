#include "content/htmlToText.h"

#include <map>
#include <sstream>

#include "tests/support/support.h"

namespace {

string convert(const string &page) {
  GuardedText buffer(page);
  auto length = static_cast<int32_t>(page.size());
  ConvertHTMLToText(buffer.get(), &length);
  const string text(buffer.get(), static_cast<size_t>(length));
  EXPECT_EQ(string(buffer.get() + length, page.size() - text.size()), string(page.size() - text.size(), '\0'));
  return text;
}

string strip(string text) {
  text.erase(0, std::min(text.find_first_not_of(" \t"), text.size()));
  return text.erase(text.find_last_not_of(" \t\r\n") + 1);
}

string lower(string text) {
  for (char &c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 32) : c;
  return text;
}

/* As it is defined: a strip of the whole rest, and of the whole part before, for every occurrence. */
string withoutSpacesAround(string text, char byte) {
  for (size_t at = 0; (at = text.find(byte, at)) != string::npos; at++) {
    if (text.substr(at + 1, 1) == " ") text = text.substr(0, at + 1) + strip(text.substr(at + 1));
    if (at == 0 || text[at - 1] != ' ') continue;
    const string before = strip(text.substr(0, at));
    text = before + text.substr(at);
    at = before.size();
  }
  return text;
}

enum class Kind { visible, white, tiny, noFrames };

/* Every tag is gathered and normalised. */
Kind kindOf(string tag) {
  for (char &c : tag) c = c == '\r' || c == '\n' ? ' ' : c;
  tag = lower(tag.c_str());
  for (char byte : {'=', ':', '"', ' '}) tag = withoutSpacesAround(tag, byte);
  const auto holds = [&](auto... words) { return ((tag.find(words) != string::npos) || ...); };
  if (tag.starts_with("<noframes")) return Kind::noFrames;
  if (!tag.starts_with("<f")) return Kind::visible;
  if (holds("color=white", "color=\"#ffffff\"", "color=ffffff", "color=#ffffff")) return Kind::white;
  const bool styled = holds("font style=\"font-size:", "font style=font-size:");
  return styled && holds("size:0", "size:1", "size:2") ? Kind::tiny : Kind::visible;
}

/* The conversion as it is defined, on strings. */
string reference(const string &page) {
  const std::map<string, char> names = {{"&nbsp;", ' '}, {"&quot;", '"'}, {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}};
  string out;
  for (size_t i = 0, end; i < page.size(); i = end) {
    end = i + 1;
    if (page[i] == '<') {
      end = page.find('>', i);
      if (end == string::npos) break;
      const Kind kind = kindOf(page.substr(i, end - i));
      const size_t next = page.find('<', ++end);
      const string between = page.substr(end, next - end);
      const bool blank = between.find(' ') != string::npos && between.find_first_not_of(" \r\n") == string::npos;
      if (kind == Kind::white) out += ' ';
      if (kind != Kind::visible || (blank && next != string::npos)) end = std::min(next, page.size());
    } else if (page.substr(i, 2) == "&#") {
      end = page.find_first_not_of("0123456789", i + 2);
      if (end == string::npos) break;
      const string digits = page.substr(i + 2, end - i - 2);
      unsigned value = 0;
      for (char digit : digits.substr(0, 1023)) value = value * 10 + static_cast<unsigned>(digit - '0');
      out += digits.empty() ? page[end] : static_cast<char>(value);
      if (digits.empty() || (page[end] != '<' && page[end] != '&')) end++;
    } else if (page[i] == '&') {
      const string name = lower(page.substr(i, page.find(';', i) - i + 1));
      const auto known = names.find(name);
      out += known == names.end() ? '&' : known->second;
      if (known != names.end()) end = i + name.size();
    } else {
      out += page[i];
    }
  }
  return out;
}

TEST(HtmlToText, ShowsWhatAReaderSees) {
  const std::pair<string, string> cases[] = {
      {"a <b> c </b> d<p> <b>x</b> \r\n <i>y<p>\r\n<b>x<p>\t <b>x</p> \n", "a  c  dxy\r\nx\t x \n"},
      {"<a title='<'>x>y<b", "x>y"},
      {"<font color=white>hidden<font color=white>hidden<i>x<FONT COLOR = \"#ffffff\">hidden", "  x "},
      {"<font\r\ncolor\n=\nFFFFFF><b>b<form bgcolor=white>hidden</form>seen", " b seen"},
      {"a<font style=\"font-size:1px\">hidden</font>b<NoFrames x>hidden<b>c", "abc"},
      {"<font style = font-size : 24px>hidden</font>a<font style=font-size:30px>b</font>", "ab"},
      {"&#65;&#65 b&#65<b>c&#66&#67;&#321;&#x41;&#;&#" + string(1030, '1') + ";", "AAbAcBCAx41;;\xc7"},
      {"a&#0;b", string("a\0b", 3)},
      {"&#<b>x&#&lt;&#65", "<b>x&lt;"},
      {"&NBSP;&quot;&Amp;&lt;&gt;&copy;&nbsp &amp;lt;&amp", " \"&<>&copy;&nbsp &lt;&amp"}};
  for (const auto &[page, text] : cases) {
    EXPECT_EQ(convert(page), text) << page;
    EXPECT_EQ(reference(page), text) << page;
  }
}

TEST(HtmlToText, EqualsTheDefinitionOnRandomPages) {
  std::istringstream list(
      "<|>|<|>| | |\r|\n|\t|&|#|&#|6|5|;|&nbsp|&lt;|&amp;|<font |font |color=white|color|=|\"|#FFFFFF|f|<noframes|:|<f|"
      "style|font-size|size:1|white|a|style=font-size:2");
  std::vector<string> pieces = {string(1, '\0')};
  for (string piece; std::getline(list, piece, '|');) pieces.push_back(piece);
  std::mt19937 random(11);
  for (int round = 0; round < 10000; round++) {
    string page;
    for (size_t i = random() % 40; i > 0; i--) page += pieces[random() % pieces.size()];
    ASSERT_EQ(convert(page), reference(page)) << round << ": " << page;
  }
}

TEST(HtmlToText, StripsAroundAByte) {
  std::mt19937 random(13);
  for (int round = 0; round < 10000; round++) {
    string text(random() % 14, ' ');
    for (char &c : text) c = "  \t\r\n=x"[random() % 7];
    GuardedText stripped(text);
    EXPECT_EQ(processmystring1(stripped.get()), std::max(static_cast<int>(strip(text).size()) - 1, 0)) << text;
    ASSERT_EQ(stripped.get(), strip(text)) << text;
    for (char byte : {'=', ' ', '\t'}) {
      GuardedText copy(text);
      RemoveSpacesBeforeAndAfterByte(copy.get(), string(1, byte).c_str());
      ASSERT_EQ(copy.get(), withoutSpacesAround(text, byte)) << "byte " << int{byte} << " of '" << text << "'";
    }
  }
}

TEST(HtmlToText, CollectsLinks) {
  char links[64] = "x ";
  int length = 2;
  for (const char *tag : {"<a HREF=http://a/b", "<a name=x", "<a href", "<a href=", "<a x=1 href=\"c\""})
    CheckForHREFLink(tag, links, &length);
  EXPECT_STREQ(links, "x http://a/b \"c\" ");
  EXPECT_EQ(length, 17);
}

}  // namespace
