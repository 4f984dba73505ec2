#include "host/listFormat.h"

#include "tests/support/support.h"

using namespace netsift::host;
using namespace netsift::test;

namespace {

/* The entries of one line, joined by blanks; "-" behind them for each part of it that is left out. */
std::string meaning(const std::string &format, const std::string &line, bool blocks = true) {
  const std::string text = "# format: " + format + "\n" + line + "\r\n";
  const Converted converted = convertList(text, listFormat(text), blocks);
  std::string entries = converted.entries;
  for (char &c : entries) c = c == '\n' ? ' ' : c;
  if (!entries.empty()) entries.pop_back();
  for (const LeftOut &out : converted.leftOut) {
    EXPECT_EQ(out.line, 2) << line;
    entries += "-";
  }
  return entries;
}

}  // namespace

TEST(ListFormat, LinesBecomeTheEntriesThatTheyMean) {
  const std::tuple<const char *, std::string, std::string> cases[] = {
      {"hosts", "0.0.0.0 A.example\tb.example # c.example", "a.example b.example"},
      {"hosts", "::1 localhost ip6-loopback d.example", "d.example"},
      {"hosts", "127.0.0.1 localhost", ""},
      {"hosts", "192.168.0.5 nas", "-"},
      {"hosts", "e.example", "e.example"},
      {"hosts", "e.example f.example", "-"},
      {"hosts", "fe80::1 localhost", ""},
      {"domains", "  Example.ORG.  ", "example.org"},
      {"domains", ".example.org", "example.org"},
      {"domains", "*.example.org", "example.org"},
      {"domains", "https://www.example.org:8443/", "example.org"},
      {"domains", "www.example.org/x", "-"},
      {"domains", "www.gov.uk", "www.gov.uk"},
      {"domains", "www.com", "www.com"},
      {"domains", "www.museum.uk", "museum.uk"},
      {"domains",
       "b\xC3\xBC"
       "cher.example # books",
       "xn--bcher-kva.example"},
      {"domains", "xn--bcher-kva.example", "xn--bcher-kva.example"},
      {"domains", "192.168", "192.168"},
      {"domains", "192.168.*", "192.168"},
      {"domains", "0x7F.1", "127.0.0.1"},
      {"domains", "[0::1]", "[::1]"},
      {"domains", "a*.example", "-"},
      {"domains", "a b", "-"},
      {"domains", "a@b.example", "-"},
      {"domains", "\xFF.example", "-"},
      {"domains", "# note", ""},
      {"adblock", "||Ads.example^", "ads.example"},
      {"adblock", "||ads.example^|", "ads.example"},
      {"adblock", "||*.ads.example^$document,important", "ads.example"},
      {"adblock", "||ads.example^$third-party", "-"},
      {"adblock", "@@||ads.example^", "-"},
      {"adblock", "||ads.example/banner", "-"},
      {"adblock", "/banner/*", "-"},
      {"adblock", "example.org##.ad", "-"},
      {"adblock", "! a comment", ""},
      {"adblock", "[Filters 2.0]", ""},
      {"urls", "HTTP://www.Example.org:81/Games/#top", "www.example.org/Games example.org/Games"},
      {"urls", "example.org/a%20b?c=%41 # note", "example.org/a b?c=A"},
      {"urls", "example.org/a b#c", "example.org/a b"},
      {"urls", "example.org?q", "example.org/?q"},
      {"urls",
       "B\xC3\x9C"
       "cher.example./x",
       "xn--bcher-kva.example/x"},
      {"urls", "Example.org:80/Games*", "example.org/Games*"},
      {"urls", "Example*Word*", "example*Word*"},
      {"urls", "*W\xC3\xB6rt*", "*W\xC3\xB6rt*"},
      {"urls", "\xC3\xB6*", "-"},
      {"urls", "example.org/%2A", "-"},
      {"urls", "example.org/%0A", "-"},
      {"urls", "u:p@example.org/", "-"},
  };
  for (const auto &[format, line, entries] : cases) EXPECT_EQ(meaning(format, line), entries) << format << " " << line;
  EXPECT_EQ(meaning("domains", "www.example.org", false), "www.example.org") << "what exempts is not widened";
  EXPECT_EQ(meaning("urls", "www.example.org/a", false), "www.example.org/a");
}

TEST(ListFormat, IsNamedByTheFirstLineAlone) {
  const std::pair<std::string, ListFormat> cases[] = {{"\xEF\xBB\xBF#FORMAT:hosts \r\na", ListFormat::hosts},
                                                      {"!  Format: Adblock", ListFormat::adblock},
                                                      {"# format: hosts and more\n", ListFormat::unknown},
                                                      {"# a format: hosts\n", ListFormat::none},
                                                      {"\n# format: hosts\n", ListFormat::none},
                                                      {"", ListFormat::none},
                                                      {"#", ListFormat::none}};
  for (const auto &[text, format] : cases) EXPECT_EQ(listFormat(text), format) << text;
  EXPECT_EQ(convertList("# format: domains\ra\rb\r", ListFormat::domains, true).entries, "a\nb\n");
}
