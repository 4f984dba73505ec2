#include "host/listCheck.h"

#include <filesystem>

#include "tests/support/support.h"

using namespace netsift::host;
using std::string_literals::operator""s;

namespace {

void writeLists(const ScratchRoot &root) {
  for (const std::string name : {"whitelist", "adserver", "popup"}) {
    for (const char *suffix : {".dom", ".phrase", ".url.orig"}) writeFile(root.config(name + suffix), "");
  }
}

/* Line and message up to its first punctuation mark of what is said of one file; "!" before what is refused. */
std::string said(const std::string &file) {
  Problems problems;
  checkLists(problems);
  std::string all;
  for (const Problem &problem : problems) {
    if (problem.file != file) continue;
    all += (problem.fatal ? "!" : "") + std::to_string(problem.line) + " " +
           problem.message.substr(0, problem.message.find_first_of(",;:")) + "|";
  }
  return all;
}

/* The same of the list "popup" while one of its sources may not be written. Root may write everything. */
std::string saidOfReadOnly(const ScratchRoot &root, const std::string &source) {
  std::filesystem::permissions(root.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(source, std::filesystem::perms(0444));
  const bool wasRoot = geteuid() == 0 && seteuid(65534) == 0;
  const std::string all = said(root.config("popup.url"));
  EXPECT_TRUE(!wasRoot || seteuid(0) == 0);
  std::filesystem::permissions(source, std::filesystem::perms(0644));
  return all;
}

}  // namespace

TEST(ListCheck, NamesEachEntryThatCanNeverMatchAndRefusesWhatWouldNotBeLoaded) {
  const ScratchRoot root;
  StrictHttp = STRICT_HTTP;
  writeLists(root);
  const std::string utf16 = "!0 is UTF-16 or no text|", ended = " a byte of 255 ends the list|",
                    mark = "1 a byte order mark makes the first entry another one|", capital = " matches no host|",
                    slash = " never matches with a \"/\" at its end|",
                    front = " never matches with a \".\" at its front|",
                    end = " never matches with a \".\" at its host's end|";
  const std::tuple<const char *, std::string, std::string> cases[] = {
      {"popup.dom", "a.example\n192.168\nb-1.example", ""},
      {"popup.dom", "\xEF\xBB\xBF.a\n", mark},
      {"popup.dom", "\xFF\xFE", utf16},
      {"popup.dom", "\xFE\xFF", utf16},
      {"popup.dom", "\0a"s, utf16},
      {"popup.dom", "a\nb\xFF.c\nd\n", "!2" + ended},
      {"popup.dom", "a\r\n.b\r\nC\r\nd.\r\n", "2" + front + "3" + capital + "4 never matches with a \".\" at its end|"},
      {"popup.dom", std::string(1021, 'a') + "\n" + std::string(1022, 'a'),
       "2 a domain of more than 1021 bytes never matches|"},
      {"popup.url.orig", "a.example/Path\n*Word*\nb/*\nc/x.\n.*\nd.*\n*/\n", "5" + front},
      {"popup.url.orig", "A/x\nbB*\nc/\n.d/x\ne./x\nf.\n",
       "1" + capital + "2" + capital + "3" + slash + "4" + front + "5" + end + "6" + end},
      {"popup.url.orig", "a\n\n\xFF", "!3" + ended + "3 the last line has no line end|"},
      {"popup.dom", "#x\n0.0.0.0 a\n||a^\nb:80\n[::1]\n\xC3\xBC.a\n c.d \n",
       "1 is an entry|2 never matches with a blank in it|3 never matches|4 never matches with a port|"
       "6 matches no host|"},
      {"popup.url.orig", "#x\n||a^\nb:80/x\n[::1]/x\n\xC3\xBC.a/x\na/\xC3\xBC 100% a\na?b\nc/a%20b\nc/%20*\n",
       "1 is an entry|2 never matches|3 never matches with a port|5 matches no host|"
       "7 never matches with a \"?\" right behind its host|8 is compared with URLs whose percent-encoding is undone|"},
      {"popup.dom", "\xEF\xBB\xBF# Format: Hosts\n0.0.0.0 A.example\n10.0.0.1 b.example\n0.0.0.0 a/b\n",
       "3 left out|4 left out|"},
      {"popup.dom", "# format: host\n", "!1 names a format that is none|"},
      {"popup.dom", "# format: urls\n", "!1 names a format of URLs|"},
      {"popup.url.orig", "! format: adblock\n", "!1 names a format of hosts|"},
      {"popup.phrase", "<a \xFF>1\n<b\xFF>1\n<~>0\n", "!2" + ended}, /* a record with a blank makes no pattern */
      {"popup.reported.url.orig", "a/x\n\xFF\n", "!2" + ended}};
  for (const auto &[name, text, expected] : cases) {
    const std::string kept = readFile(root.config(name));
    writeFile(root.config(name), text);
    EXPECT_EQ(said(root.config(name)), expected) << name << "\n" << text;
    writeFile(root.config(name), kept);
  }
}

TEST(ListCheck, AListThatIsUsedAsItStandsIsNoShorterThanItsSourceAndEndsItsLastPattern) {
  const ScratchRoot root;
  writeLists(root);
  writeFile(root.config("popup.url"), "a\n*b");
  ASSERT_EQ(said(root.config("popup.url")), "") << "it is made anew";
  const std::string source = root.config("popup.url.orig"), standing = "0 is used as it stands|",
                    end = "2 the last line has a \"*\" and no line end|";
  EXPECT_EQ(saidOfReadOnly(root, source), standing + end);
  writeFile(source, "longer\n");
  EXPECT_EQ(saidOfReadOnly(root, source), standing + "!0 is shorter than " + source + "|" + end);
  std::filesystem::remove(root.config("popup.phrase"));
  EXPECT_EQ(said(root.config("popup.url")), "2 the last line has a \"*\" and no line end|");
}
