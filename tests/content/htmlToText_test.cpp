#include "content/htmlToText.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <random>
#include <string>

#include "tests/support/support.h"

namespace {

using netsift::test::GuardedText;
using std::string;

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

/* As it is defined: a strip of the whole rest, and of the whole part before, for every occurrence. */
string withoutSpacesAround(string text, char byte) {
  for (size_t at = 0; (at = text.find(byte, at)) != string::npos; at++) {
    if (at + 1 < text.size() && text[at + 1] == ' ') text = text.substr(0, at + 1) + strip(text.substr(at + 1));
    if (at > 0 && text[at - 1] == ' ') {
      const string before = strip(text.substr(0, at));
      text = before + text.substr(at);
      at = before.size();
    }
  }
  return text;
}

bool holds(const string &tag, const char *word) { return strcasestr(tag.c_str(), word) != nullptr; }

/* 'v' visible, 'w' white, 't' tiny, 'n' noframes: every tag gathered and normalised. */
char kindOf(string tag) {
  for (char &c : tag) c = c == '\r' || c == '\n' ? ' ' : c;
  tag = tag.c_str();
  for (char byte : {'=', ':', '"', ' '}) tag = withoutSpacesAround(tag, byte);
  if (tag.size() > 1 && (tag[1] | 32) == 'f') {
    for (const char *white : {"color=white", "color=\"#FFFFFF\"", "color=FFFFFF", "color=#FFFFFF"}) {
      if (holds(tag, white)) return 'w';
    }
    const bool styled = holds(tag, "font style=\"font-size:") || holds(tag, "font style=font-size:");
    if (styled && (holds(tag, "size:0") || holds(tag, "size:1") || holds(tag, "size:2"))) return 't';
  }
  return strncasecmp(tag.c_str(), "<noframes", 9) == 0 ? 'n' : 'v';
}

/* The conversion as it is defined, on strings. */
string reference(const string &page) {
  string out;
  bool suppressed = false;
  for (size_t i = 0; i < page.size();) {
    if (page[i] == '<') {
      const size_t close = page.find('>', i);
      if (close == string::npos) break;
      const char kind = kindOf(page.substr(i, close - i));
      const size_t next = page.find('<', i = close + 1);
      const string stretch = page.substr(i, next - i);
      suppressed = kind == 'v' && next != string::npos && stretch.find(' ') != string::npos &&
                   stretch.find_first_not_of(" \r\n") == string::npos;
      if (kind == 'w') out += ' ';
      if (kind != 'v') i = std::min(next, page.size());
    } else if (page[i] == '&' && i + 1 < page.size() && page[i + 1] == '#') {
      unsigned value = 0;
      const size_t digits = i += 2;
      for (; i < page.size() && isdigit(page[i]); i++)
        value = i - digits < 1023 ? (value * 10 + page[i] - '0') & 255 : value;
      if (i == page.size()) break;
      out += static_cast<char>(i == digits ? page[i] : value);
      if (i == digits || (page[i] != '<' && page[i] != '&')) i++;
    } else if (page[i] == '&') {
      const size_t end = string(page.c_str() + i).find(';');
      const string name = end < 6 ? page.substr(i, end + 1) : "";
      const struct {
        const char *name, *value;
      } names[] = {{"&nbsp;", " "}, {"&quot;", "\""}, {"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"", "&"}};
      const auto *known = names;
      while (*known->name != '\0' && strcasecmp(known->name, name.c_str()) != 0) known++;
      out += known->value;
      i += *known->name != '\0' ? name.size() : 1;
    } else {
      if (!suppressed) out += page[i];
      i++;
    }
  }
  return out;
}

TEST(HtmlToText, ShowsWhatAReaderSees) {
  const struct {
    string page, text;
  } cases[] = {{"a <b> c </b> d", "a  c  d"},
               {"<p> <b>x</b> \r\n <i>y", "xy"},
               {"<p>\r\n<b>x", "\r\nx"},
               {"<p>\t <b>x", "\t x"},
               {"<p>x</p> \n", "x \n"},
               {"<a title='<'>x>y<b", "x>y"},
               {"a<font color=white>hidden<b>b", "a b"},
               {"<FONT COLOR = \"#ffffff\">hidden", " "},
               {"<font\r\ncolor\n=\nFFFFFF><b>b", " b"},
               {"<form bgcolor=white>hidden</form>seen", " seen"},
               {"a<font style=\"font-size:1px\">hidden</font>b", "ab"},
               {"a<font style = font-size : 24px>hidden</font>b", "ab"},
               {"a<font style=font-size:30px>seen</font>b", "aseenb"},
               {"<NoFrames x>hidden<b>seen", "seen"},
               {"<font color=white>hidden<font color=white>hidden<i>x", "  x"},
               {"&#65;&#65 b&#65<b>c&#66&#67;", "AAbAcBC"},
               {"&#x41;&#;&#321;&#" + string(1030, '1') + ";", string("x41;;A\xc7", 7)},
               {"a&#0;b", string("a\0b", 3)},
               {"&#<b>x&#&lt;", "<b>x&lt;"},
               {"a&#65", "a"},
               {"&NBSP;&quot;&Amp;&lt;&gt;&copy;&nbsp &amp", " \"&<>&copy;&nbsp &amp"},
               {"&lt;b&gt;&amp;lt;", "<b>&lt;"}};
  for (const auto &c : cases) {
    EXPECT_EQ(convert(c.page), c.text) << c.page;
    EXPECT_EQ(reference(c.page), c.text) << c.page;
  }
}

TEST(HtmlToText, EqualsTheDefinitionOnRandomPages) {
  const string pieces[] = {"<",
                           ">",
                           "<",
                           ">",
                           " ",
                           " ",
                           "\r",
                           "\n",
                           "\t",
                           "&",
                           "#",
                           "&#",
                           "6",
                           "5",
                           ";",
                           "&nbsp",
                           "&lt;",
                           "&amp;",
                           "<font ",
                           "font ",
                           "color=white",
                           "color",
                           "=",
                           "\"",
                           "#FFFFFF",
                           "f",
                           "<noframes",
                           ":",
                           "<f",
                           "style",
                           "font-size",
                           "size:1",
                           "white",
                           "a",
                           "style=font-size:2",
                           string(1, '\0')};
  std::mt19937 random(11);
  for (int round = 0; round < 10000; round++) {
    string page;
    for (size_t i = random() % 40; i > 0; i--) page += pieces[random() % std::size(pieces)];
    ASSERT_EQ(convert(page), reference(page)) << round << ": " << page;
  }
}

TEST(HtmlToText, StripsAroundAByte) {
  const string alphabet = "  \t\r\n=x";
  std::mt19937 random(13);
  for (int round = 0; round < 10000; round++) {
    string text(random() % 14, ' ');
    for (char &c : text) c = alphabet[random() % alphabet.size()];
    for (char byte : {'=', ' ', '\t'}) {
      GuardedText copy(text);
      RemoveSpacesBeforeAndAfterByte(copy.get(), string(1, byte).c_str());
      ASSERT_EQ(string(copy.get()), withoutSpacesAround(text, byte)) << "byte " << int{byte} << " of '" << text << "'";
    }
    GuardedText copy(text);
    const int last = processmystring1(copy.get());
    ASSERT_EQ(string(copy.get()), strip(text)) << text;
    ASSERT_EQ(last, std::max(static_cast<int>(strip(text).size()) - 1, 0));
  }
}

TEST(HtmlToText, CollectsLinks) {
  char links[64] = "x ";
  int length = 2;
  for (const char *tag : {"<a HREF=http://a/b", "<a name=x", "<a href", "<a href=", "<a x=1 href=\"c\""}) {
    CheckForHREFLink(tag, links, &length);
  }
  EXPECT_STREQ(links, "x http://a/b \"c\" ");
  EXPECT_EQ(length, static_cast<int>(strlen(links)));
}

}  // namespace
