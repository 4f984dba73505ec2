#include "host/listFormat.h"

#include "tests/support/support.h"

using namespace netsift::host;

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

void expectMeaning(const std::string &format, const std::string &entries, const std::vector<std::string> &lines) {
  for (const std::string &line : lines) EXPECT_EQ(meaning(format, line), entries) << format << " " << line;
}

}  // namespace

TEST(ListFormat, LinesBecomeTheEntriesThatTheyMean) {
  expectMeaning("hosts", "a.example b.example", {"0.0.0.0 A.example\tb.example # c.example"});
  expectMeaning("hosts", "d.example", {"::1 localhost ip6-loopback d.example"});
  expectMeaning("hosts", "", {"127.0.0.1 localhost", "fe80::1 localhost"});
  expectMeaning("hosts", "-", {"192.168.0.5 nas", "e.example f.example"});
  expectMeaning("hosts", "e.example", {"e.example"});
  expectMeaning("domains", "example.org",
                {"  Example.ORG.  ", ".example.org", "*.example.org", "https://www.example.org:8443/"});
  expectMeaning("domains", "-", {"www.example.org/x", "a*.example", "a b", "a@b.example", "\xFF.example"});
  expectMeaning("domains", "www.gov.uk", {"www.gov.uk"});
  expectMeaning("domains", "www.com", {"www.com"});
  expectMeaning("domains", "museum.uk", {"www.museum.uk"});
  expectMeaning("domains", "xn--bcher-kva.example", {"b\u00FCcher.example # books", "xn--bcher-kva.example"});
  expectMeaning("domains", "192.168", {"192.168", "192.168.*"});
  expectMeaning("domains", "127.0.0.1", {"0x7F.1"});
  expectMeaning("domains", "[::1]", {"[0::1]"});
  expectMeaning("domains", "", {"# note"});
  expectMeaning("adblock", "ads.example", {"||Ads.example^", "||ads.example^|", "||*.ads.example^$document,important"});
  expectMeaning(
      "adblock", "-",
      {"||ads.example^$third-party", "@@||ads.example^", "||ads.example/banner", "/banner/*", "example.org##.ad"});
  expectMeaning("adblock", "", {"! a comment", "[Filters 2.0]"});
  expectMeaning("urls", "www.example.org/Games example.org/Games", {"HTTP://www.Example.org:81/Games/#top"});
  expectMeaning("urls", "example.org/a b?c=A", {"example.org/a%20b?c=%41 # note"});
  expectMeaning("urls", "example.org/a b", {"example.org/a b#c"});
  expectMeaning("urls", "example.org/?q", {"example.org?q"});
  expectMeaning("urls", "xn--bcher-kva.example/x", {"B\u00DCcher.example./x"});
  expectMeaning("urls", "example.org/Games*", {"Example.org:80/Games*"});
  expectMeaning("urls", "example*Word*", {"Example*Word*"});
  expectMeaning("urls", "*W\xC3\xB6rt*", {"*W\xC3\xB6rt*"});
  expectMeaning("urls", "-", {"\xC3\xB6*", "example.org/%2A", "example.org/%0A", "u:p@example.org/"});
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
