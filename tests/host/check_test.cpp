#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "cache/dbcache.h"
#include "host/phraseCheck.h"
#include "tests/host/install.h"

using namespace netsift::host;
using namespace netsift::test;

TEST(PhraseCheck, WarnsWithTheLineOfTheRecord) {
  const std::string longPhrase(127, 'b');
  const struct {
    std::string text, problems; /* line and message, up to its first punctuation mark; "!" before what is refused */
  } cases[] = {
      {"<\xC3\xA9t\xC3\xA9>5\n<a>-3\n<~>1", ""}, /* bytes above 127 sort first; a last phrase of one byte is found */
      {"<ab>1\n<aa>1\n<~>0\n", "2 out of order|"},
      {"<a>1\n<\"word\">1\n<~>0\n", "2 out of order|"}, /* it is compared as " word " */
      {"<a>1\n<" + longPhrase + ">1\n<~>0", "2 the phrase is 127 bytes long|"},
      {"<a>1\n\n\n<b>0\n<c>\n<~>0", "4 the weight is 0|5 the phrase has no weight|"},
      {"<a>1\n<cc>2\n", "2 the last phrase of a file is never found|"},
      {"<a>1\n<b 2\n", "!2 the record is not closed by \">\"|"},
      {"<a>1 # one\n<~>0", "1 a record must begin with \"<\"|1 the phrase holds a line end|1 out of order|"},
      {"<>1\n", "1 the phrase is empty|!0 holds no phrase|"},
      {"", ""},
  };
  for (const auto &[text, expected] : cases) {
    Problems problems;
    checkPhrases(text, "f", problems);
    std::string got;
    for (const auto &[fatal, file, line, key, message] : problems)
      got += (fatal ? "!" : "") + std::to_string(line) + " " + message.substr(0, message.find_first_of(",;:")) + "|";
    EXPECT_EQ(got, expected) << text;
  }
}

TEST(InstallCheck, ACompleteInstallationIsInOrderAndCheckingChangesNothing) {
  const Install install;
  EXPECT_EQ(install.problems(), "");
  EXPECT_FALSE(std::filesystem::exists(install.cache));
  std::filesystem::remove_all(install.root.path() + "/var");
  EXPECT_EQ(install.problems(), "") << "a start can make it";
  EXPECT_FALSE(std::filesystem::exists(install.root.path() + "/var"));
  EXPECT_EQ(install.problems(true), "");
  EXPECT_TRUE(std::filesystem::exists(install.root.log("")) && std::filesystem::exists(install.cache));
}

TEST(InstallCheck, EachFileThatIsMissingOrWrongIsNamed) {
  const struct {
    const char *file, *content /* null: removed */, *problem; /* beside that no scan engine is selected */
  } cases[] = {
      {"whitelist.dom", nullptr, "E whitelist.dom: cannot be read: No such file or directory"},
      {"adserver.url.orig", nullptr, "E adserver.url: does not exist, nor both .url.orig and .phrase"},
      {"sample.phrase", "", "W sample.phrase: is empty: it judges nothing, and neither does the last category"},
      {"errortemplate.htm", nullptr, "E errortemplate.htm: cannot be read"},
      {"script.html", nullptr, "E script.html: popups.script: cannot be read"},
      {"popup.dom", "fine.example\nhttp.example/path\n", "W popup.dom:2: a domain has no \"/\""},
      {"popup.url.orig", "fine.example/\n\nhttp://x.example/\n", "W popup.url.orig:3: an entry begins with the host"},
      {"popup.url.orig", "x.example", "W popup.url.orig:1: the last line has no line end"},
      {"viruswhite.conf", "image/\n\n", "W viruswhite.conf:2: an empty line exempts everything"},
      {"viruswhite.conf", "image/", "W viruswhite.conf:1: a last line without a line end is ignored"},
  };
  for (const auto &[file, content, expected] : cases) {
    Install install;
    install.configuration +=
        "popups = {block = true, script = \"script.html\"}\n"
        "scanning = {scan = true, second_engine = false, skip_types = true, spool_folder = \"/tmp\"}\n";
    install.write("script.html", "<script>");
    install.write("viruswhite.conf", "image/\n");
    if (content == nullptr) unlink(install.root.config(file).c_str());
    if (content != nullptr) install.write(file, content);
    const std::string got = install.problems();
    EXPECT_TRUE(got.starts_with(expected) && std::ranges::count(got, '\n') == 2) << file << "\n" << got;
  }
}

TEST(InstallCheck, TheSecondEnginesLinkReplacesALinkButNoSocket) {
  Install install;
  install.configuration += "scanning = {scan = true, spool_folder = \"/tmp\", second_engine_socket = \"/run/x.ctl\"}\n";
  const std::string link = install.root.path() + "/opt/Velmora/var/run/vlcavd.sock";
  std::filesystem::create_symlink("/old", link);
  install.problems(true);
  EXPECT_EQ(std::filesystem::read_symlink(link), "/run/x.ctl");
  std::filesystem::remove(link);
  writeFile(link, "in place of a socket");
  EXPECT_TRUE(install.problems(true).starts_with("E vlcavd.sock: scanning.second_engine_socket: is no link"));
  EXPECT_EQ(readFile(link), "in place of a socket");
}

TEST(InstallCheck, VerdictsAreForgottenUnlessTheyAreKept) {
  for (bool keeps : {false, true}) {
    Install install;
    writeFile(install.cache, "noise");
    if (keeps) install.configuration += "cache.keep_on_load = true\n";
    EXPECT_EQ(install.problems(true).starts_with("W nscache.db: is no usable cache database "), keeps);
    EXPECT_EQ(readFile(install.cache), "noise") << "reading and checking leave it";
    Problems problems;
    forgetVerdicts(problems);
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ(readFile(install.cache) == "noise", keeps);
    EXPECT_EQ(addto_urlcache_db("a.example", "Sun, 06 Nov 1994 08:49:37 GMT", 0), keeps ? -1 : 1);
  }
}
