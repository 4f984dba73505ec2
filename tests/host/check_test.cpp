#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "cache/dbcache.h"
#include "host/configRead.h"
#include "host/hostConfig.h"
#include "host/installCheck.h"
#include "host/phraseCheck.h"
#include "state/settings.h"
#include "tests/host/install.h"

using namespace netsift::host;
using namespace netsift::test;

TEST(PhraseCheck, WarnsWithTheLineOfTheRecord) {
  std::string longPhrase(127, 'b');
  struct {
    std::string text, problems; /* "line message-start" each, after "|" */
  } cases[] = {
      {"<a>1\n<b>2\n<z end>0\n", ""},
      {"<\xC3\xA9t\xC3\xA9>5\n<a>-3\n<~>1", ""}, /* bytes above 127 sort first; a last phrase of one byte is found */
      {"<ab>1\n<aa>1\n<~>0\n", "|2 out of order"},
      {"<a>1\n<\"word\">1\n<~>0\n", "|2 out of order"}, /* it is compared as " word " */
      {"<a>1\n<" + longPhrase + ">1\n<~>0", "|2 the phrase is 127 bytes"},
      {"<a>1\n\n\n<b>0\n<c>\n<~>0", "|4 the weight is 0|5 the phrase has no weight"},
      {"<a>1\n<b>1\n<cc>2\n", "|3 the last phrase"},
      {"<a>1\n<b 2\n", "|2 the record is not closed"},
      {"<a>1\n<b 2\n<c>3\n<~>0", "|2 the phrase holds a line end"},
      {"<a>1 # one\n<~>0", "|1 a record must begin with \"<\"|1 the phrase holds a line end|1 out of order"},
      {"<>1\n<~>0", "|1 the phrase is empty"},
      {"<>1\n", "|1 the phrase is empty|0 holds no phrase"},
      {"", ""},
  };
  for (const auto &[text, expected] : cases) {
    Problems problems;
    checkPhrases(text, "f", problems);
    std::string_view rest = expected;
    for (const Problem &problem : problems) {
      std::string got = "|" + std::to_string(problem.line) + " " + problem.message;
      std::string_view wanted = rest.substr(0, rest.find('|', 1));
      EXPECT_TRUE(!wanted.empty() && got.starts_with(wanted)) << text << "\n" << got;
      rest.remove_prefix(wanted.size());
      bool refused = got.find("not closed") != got.npos || got.find("holds no phrase") != got.npos;
      EXPECT_EQ(problem.fatal, refused) << text;
    }
    EXPECT_EQ(rest, "") << text;
  }
}

TEST(InstallCheck, ACompleteInstallationIsInOrderAndCheckingChangesNothing) {
  Install install;
  EXPECT_EQ(install.problems(), "");
  EXPECT_FALSE(std::filesystem::exists(install.root.path() + "/opt/Velmora/var/nscache.db"));
  std::filesystem::remove_all(install.root.path() + "/var");
  EXPECT_EQ(install.problems(), "") << "a start can make it";
  EXPECT_FALSE(std::filesystem::exists(install.root.path() + "/var"));
  EXPECT_EQ(install.problems(true), "");
  EXPECT_TRUE(std::filesystem::exists(install.root.log("")));
  EXPECT_TRUE(std::filesystem::exists(install.root.path() + "/opt/Velmora/var/nscache.db"));
}

TEST(InstallCheck, EachFileThatIsMissingOrWrongIsNamed) {
  struct {
    const char *file, *content; /* null: removed */
    const char *problem;
  } cases[] = {
      {"whitelist.dom", nullptr, "E whitelist.dom: cannot be read: No such file or directory"},
      {"adserver.url.orig", nullptr, "E adserver.url: does not exist, nor both .url.orig and .phrase"},
      {"sample.phrase", nullptr, "E sample.url: does not exist, nor both .url.orig and .phrase"},
      {"sample.phrase", "", "W sample.phrase: is empty: it judges nothing, and neither does the last category"},
      {"sample.phrase", "<a>1", ""},
      {"sample.phrase", "<a", "E sample.phrase:1: the record is not closed"},
      {"template", nullptr, "E template: cannot be read: No such file or directory"},
      {"errortemplate.htm", nullptr, "E errortemplate.htm: cannot be read"},
      {"script.html", nullptr, "E script.html: popups.script: cannot be read"},
      {"script.html", "", "E script.html: popups.script: is empty"},
      {"popup.dom", "fine.example\nhttp.example/path\n", "W popup.dom:2: a domain has no \"/\""},
      {"popup.url.orig", "fine.example/\n\nhttp://x.example/\n", "W popup.url.orig:3: an entry begins with the host"},
      {"popup.url.orig", "x.example", "W popup.url.orig:1: the last line has no line end"},
      {"viruswhite.conf", "image/\n\n", "W viruswhite.conf:2: an empty line exempts everything"},
      {"viruswhite.conf", "image/", "W viruswhite.conf:1: a last line without a line end is ignored"},
  };
  for (const auto &[file, content, expected] : cases) {
    Install install;
    install.configuration +=
        "[popups]\nblock = true\nscript = \"script.html\"\n[scanning]\nscan = true\n"
        "second_engine = false\nskip_types = true\nspool_folder = \"/tmp\"\n";
    install.write("script.html", "<script>");
    install.write("viruswhite.conf", "image/\n");
    if (content == nullptr)
      unlink(install.root.config(file).c_str());
    else
      install.write(file, content);
    std::string got = install.problems();
    size_t engine = got.find("W scanning.scan: no engine is selected"); /* the only other thing to say */
    EXPECT_NE(engine, std::string::npos) << got;
    EXPECT_EQ(got.substr(0, std::strlen(expected)), expected) << file << "\n" << got;
    EXPECT_EQ(engine == 0, *expected == '\0') << got;
  }
}

TEST(InstallCheck, TheSecondEnginesLinkReplacesALinkButNoSocket) {
  Install install;
  install.configuration += "[scanning]\nscan = true\nspool_folder = \"/tmp\"\nsecond_engine_socket = \"/run/x.ctl\"\n";
  std::string link = install.root.path() + "/opt/Velmora/var/run/vlcavd.sock";
  std::filesystem::create_symlink("/old", link);
  install.problems(true);
  EXPECT_EQ(std::filesystem::read_symlink(link), "/run/x.ctl");
  unlink(link.c_str());
  writeFile(link, "in place of a socket");
  EXPECT_NE(install.problems(true).find("vlcavd.sock: scanning.second_engine_socket: is no link"), std::string::npos);
  EXPECT_EQ(readFile(link), "in place of a socket");
}

TEST(InstallCheck, ADamagedCacheIsAWarningAndALongSpoolPathAnError) {
  Install install;
  install.configuration += "[cache]\nkeep_on_load = true\n";
  writeFile(install.root.path() + "/opt/Velmora/var/nscache.db", "noise");
  EXPECT_EQ(install.problems(true).substr(0, 42), "W nscache.db: is no usable cache database ");
  unlink((install.root.path() + "/opt/Velmora/var/nscache.db").c_str());
  install.configuration += "[scanning]\nscan = true\nspool_folder = \"/tmp/" + std::string(27, 'x') + "/\"\n";
  std::string problems = install.problems();
  EXPECT_EQ(std::strlen(VIRFILE_DIR), 33u);
  EXPECT_EQ(problems.find("scanning.spool_folder"), std::string::npos) << problems;
  install.configuration.insert(install.configuration.size() - 3, "x");
  problems = install.problems();
  EXPECT_NE(problems.find("scanning.spool_folder: is 34 bytes long"), std::string::npos) << problems;
}

TEST(InstallCheck, VerdictsAreForgottenUnlessTheyAreKept) {
  for (bool keeps : {false, true}) {
    Install install;
    std::string cache = install.root.path() + "/opt/Velmora/var/nscache.db";
    writeFile(cache, "verdicts");
    if (keeps) install.configuration += "[cache]\nkeep_on_load = true\n";
    install.problems(true);
    EXPECT_EQ(readFile(cache), "verdicts") << "reading and checking leave it";
    Problems problems;
    forgetVerdicts(problems);
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ(readFile(cache) == "verdicts", keeps);
    EXPECT_EQ(addto_urlcache_db("a.example", "Sun, 06 Nov 1994 08:49:37 GMT", 0), keeps ? -1 : 1);
  }
}
