#include "policy/urlList.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using namespace netsift::test;
using std::string;
using Strings = std::vector<string>;

Strings entries(char **array) {
  Strings found;
  for (; *array != nullptr; array++) found.emplace_back(*array);
  return found;
}

void expectListed(const UrlList &list, int expected, const Strings &urls, Strings hosts) {
  for (const string &url : urls)
    EXPECT_EQ(inURLList(list.table, list.wildcards, nullptr, url.c_str()), expected) << url;
  for (string &host : hosts) EXPECT_EQ(inDomainList(nullptr, nullptr, list.domains, host.data(), 0), expected) << host;
}

TEST(UrlList, RegeneratesLoadsAndFinds) {
  const ScratchRoot root;
  const string original = "exact.com/Page\r\nads.*\r\n*/banner*\nlast", cut(999, 'l');
  writeFile(root.config("n.url.orig"), original);
  writeFile(root.config("n.phrase"), "<bad>20\n<two words>5\n<b> 5\n\n<\t>3\n<bet>\n" + string(1005, 'l') + "\n");
  writeFile(root.config("n.dom"), "one.com\n\n  \t\ntwo.org ");
  UrlList list;
  phraseinurl = 1;
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_EQ(readFile(root.config("n.url")), original + "*bad*\n*bet*\n*" + cut + "*\n*llllll*\n\n");
  EXPECT_EQ(entries(list.wildcards),
            (Strings{"ads.*", "*/banner*", "last*bad*", "*bet*", "*" + cut + "*", "*llllll*"}));
  EXPECT_EQ(entries(list.domains), (Strings{"one.com", "", "  \t", "two.org "}));
  expectListed(list, 1, {"exact.com/Page", "ads.x", "a/banner/1", "a/bet"}, {"one.com", " a.one.com ", "b.two.org"});
  expectListed(list, 0, {"exact.com/page", "exact.com/Page/", "one.com", "last"}, {"bone.com", "one.com.", "", "com"});
  freeURLList(&list);
  expectListed(list, 0, {"exact.com/Page"}, {"one.com"});

  phraseinurl = 0;
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_EQ(readFile(root.config("n.url")).find(original + "bad*\nwww.bad*\nbet*\nwww.bet*\nlll"), 0U);
  freeURLList(&list);

  writeFile(root.config("n.url"), "a*\rb*\n*c"); /* "b*" and "*c" are not among the wildcard lines counted */
  ASSERT_EQ(unlink(root.config("n.phrase").c_str()), 0);
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_EQ(readFile(root.config("n.url")), "a*\rb*\n*c");
  EXPECT_EQ(entries(list.wildcards), Strings{"a*"});
  freeURLList(&list);
}

TEST(UrlList, CountsAndReadsLinesByTheirOwnRules) {
  struct Case {
    string content;
    int lines, wildcards;
    Strings read;
  };
  const string size31(31, 'x'), size300(300, 'y');
  const Case cases[] = {{"", 0, 0, {""}},
                        {"a", 1, 0, {"a", ""}},
                        {"a*\n", 2, 1, {"a*", ""}},
                        {"a*\r\nb", 3, 1, {"a*", "", "b"}},
                        {"a*\rb*\n", 3, 1, {"a*", "b*", ""}},
                        {"*a\n*b", 2, 1, {"*a", "*b"}},
                        {"a\n\xff*\n", 2, 0, {"a", "", "*"}},
                        {"\xff", 0, 0, {""}},
                        {{"a\n\0", 3}, 1, 0, {"a"}},
                        {size31 + "\n" + size300, 2, 0, {size31, size300}}};
  const ScratchRoot root;
  for (const Case &c : cases) {
    writeFile(root.config("f"), c.content);
    FILE *file = fopen(root.config("f").c_str(), "r");
    EXPECT_EQ(numLines(file), c.lines) << c.content;
    EXPECT_EQ(numWildCardLines(file), c.wildcards) << c.content;
    for (const string &line : c.read) EXPECT_EQ(take(readURL(file)), line) << c.content;
    fclose(file);
  }
}

/* A host, an entry, the next host, and so on; each pair asked twice, since the first call trims the entry. */
void expectDomains(int isIP, int first, int second, const Strings &pairs) {
  for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
    const GuardedText host(pairs[i]), entry(pairs[i + 1]);
    EXPECT_EQ(isDomainMatching(host.get(), entry.get(), isIP), first) << pairs[i] << " / " << pairs[i + 1];
    EXPECT_EQ(isDomainMatching(host.get(), entry.get(), isIP), second) << pairs[i] << " / " << pairs[i + 1];
  }
}

TEST(UrlList, MatchesDomains) {
  const string run(110, 'r'), e1021(1021, 'e'), blanks(2000, ' ');
  expectDomains(0, 1, 1, {"a.com", "a.com", "w.a.com", "a.com", " a.com\t", "\ta.com ", "x.a.com", " a.com\r"});
  expectDomains(0, 0, 0, {"ba.com", "a.com", "a.com.b", "a.com", "A.com", "a.com", "x.com.x.com", "com"});
  expectDomains(0, 1, 1, {"x.ads1.com", "ads*.com", "x.a.b", "a.*", "x." + run, run, "x." + run, run + "cut off"});
  expectDomains(1, 1, 1, {"192.168.1.1", "192.168", "10.1", "10.1 ", e1021 + ".1", e1021, "10.1", "10.1" + blanks});
  expectDomains(1, 0, 0, {"10.10.0.1", "10.1", e1021 + "e.1", e1021 + "e"});
  expectDomains(1, 0, 1, {"10.1.2.3", "10.1 ", "10.1.2.3", " 10.1", "1.2", "1" + blanks});
}

TEST(UrlList, NumbersCategoriesAndSurvivesFailedLoads) {
  const ScratchRoot root;
  const LogCapture log(7);
  char none[] = "none", few[] = "few", late[] = "late", host[] = "x.b.com", other[] = "late.com";
  for (const char *file : {"none.url", "none.dom", "late.url", "whitelist.dom"}) writeFile(root.config(file), "");
  writeFile(root.config("few.url"), "a.com/x\n");
  writeFile(root.config("few.dom"), "b.com\n");
  writeFile(root.config("late.dom"), "late.com");
  std::vector<char *> names(200, none);
  names[5] = few;
  names[130] = late;
  categfiles = names.data();
  numcategories = 200;
  EXPECT_EQ(inBlackLists("a.com/x", host, 0), 0); /* nothing is loaded yet */
  ASSERT_EQ(makeBlackLists(), 1);
  EXPECT_EQ(inBlackLists("a.com/x", none, 0), 6);
  EXPECT_EQ(inBlackLists("d", host, 0), 6);
  EXPECT_EQ(inBlackLists("d", other, 0), static_cast<signed char>(131));
  EXPECT_NE(log.text().find("a.com/x in blacklisted url"), string::npos);
  freeBlackLists();

  names[5] = const_cast<char *>("missing");
  ASSERT_EQ(makeBlackLists(), -1);
  EXPECT_NE(log.text().find("url file " + root.config("missing.url") + " not found No such file"), string::npos);
  freeBlackLists();
  EXPECT_EQ(makeWhiteList(), -1);
  EXPECT_NE(log.text().find("build urlList -1\n"), string::npos);
  writeFile(root.config("whitelist.url"), "*\n");
  EXPECT_EQ(makeWhiteList(), 1);
  EXPECT_EQ(inWhiteList("any", host, 0), 1);
  freeWhiteList();
}

TEST(UrlList, TheShellSeesTheRootAsOneWordAndComplainsToTheLog) {
  const ScratchRoot root;
  const LogCapture log(4);
  const string hostile = root.path() + "/no'; touch " + root.config("run") + "; '";
  const string source = root.config("s"), target = root.config("u");
  writeFile(source, "");
  char *const kept = std::exchange(installroot, const_cast<char *>(hostile.c_str()));
  testing::internal::CaptureStderr();
  EXPECT_EQ(readPhrase1(source.c_str(), target.c_str(), source.c_str()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  installroot = kept;
  EXPECT_NE(log.text().find("chown"), string::npos);
  EXPECT_NE(access(root.config("run").c_str(), F_OK), 0);
}

}  // namespace
