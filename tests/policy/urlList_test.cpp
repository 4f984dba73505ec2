#include "policy/urlList.h"

#include "policy/blacklistAdd.h"
#include "tests/support/support.h"

using Strings = std::vector<string>;

void expectListed(const UrlList &list, int expected, const Strings &urls, Strings hosts) {
  for (const string &url : urls) EXPECT_EQ(inURLList(list.table, list.wildcards, {}, url.c_str()), expected) << url;
  for (string &host : hosts) EXPECT_EQ(inDomainList({}, {}, list.domains, host.data(), 0), expected) << host;
}

TEST(UrlList, RegeneratesLoadsAndFinds) {
  const ScratchRoot root;
  const string original = "exact.com/Page\r\nads.*\r\n*/banner*\nlast", cut(999, 'l');
  writeFile(root.config("n.url.orig"), original);
  writeFile(root.config("n.phrase"), "<bad>20\n<two words>5\n<b> 5\n\n<\t>3\n<bet>\n" + string(1005, 'l') + "\n");
  writeFile(root.config("n.dom"), "one.com\n\n  \t\ntwo.org ");
  UrlList list;
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_EQ(readFile(root.config("n.url")).find(original + "bad*\nwww.bad*\nbet*\nwww.bet*\nlll"), 0U);
  freeURLList(&list);
  expectListed(list, 0, {"exact.com/Page"}, {"one.com"});
  phraseinurl = 1;
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_EQ(readFile(root.config("n.url")), original + "*bad*\n*bet*\n*" + cut + "*\n*llllll*\n\n");
  expectListed(list, 1, {"exact.com/Page", "ads.x", "a/banner/1", "lastbad"}, {"one.com", " a.one.com ", "b.two.org"});
  expectListed(list, 0, {"exact.com/page", "exact.com/Page/", "one.com", "last"}, {"bone.com", "one.com.", "", "com"});
  freeURLList(&list);

  /* 0xFF ends the file; "b*" and "*c" are not among the wildcard lines counted */
  writeFile(root.config("n.url"), "a*\rb*\n" + string(300, 'y') + "\n*c\xff*d\n");
  unlink(root.config("n.phrase").c_str());
  ASSERT_EQ(buildURLList("n", &list), 1);
  EXPECT_STREQ(list.wildcards[0], "a*");
  EXPECT_EQ(list.wildcards[1], nullptr);
  expectListed(list, 1, {string(300, 'y')}, {});
  freeURLList(&list);
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
  expectDomains(0, 1, 1, {"a.com", "a.com", " a.com\t", "\ta.com ", "x.a.com", " a.com\r"});
  expectDomains(0, 0, 0, {"ba.com", "a.com", "a.com.b", "a.com", "A.com", "a.com", "x.com.x.com", "com"});
  expectDomains(0, 1, 1, {"x.ads1.com", "ads*.com", "x.a.b", "a.*", "x." + run, run, "x." + run, run + "cut off"});
  expectDomains(1, 1, 1, {"192.168.1.1", "192.168", "10.1", "10.1 ", e1021 + ".1", e1021, "10.1", "10.1" + blanks});
  expectDomains(1, 0, 0, {"10.10.0.1", "10.1", e1021 + "e.1", e1021 + "e"});
  expectDomains(1, 0, 1, {"10.1.2.3", "10.1 ", "10.1.2.3", " 10.1", "1.2", "1" + blanks});

  char blank[] = " ", host[] = " a. ", *entries[] = {blank, nullptr};
  EXPECT_EQ(inDomainList({}, {}, entries + 1, host, 0), 0);
  EXPECT_STREQ(host, " a. ") << "nothing to be compared with";
  EXPECT_EQ(inDomainList({}, {}, entries, host, 0), 0);
  EXPECT_STREQ(host, "a.");
}

TEST(UrlList, NumbersCategoriesAndSurvivesFailedLoads) {
  const ScratchRoot root;
  char none[] = "none", late[] = "late", missing[] = "missing", host[] = "x.late.com";
  for (const char *file : {"none.url", "none.dom", "late.url"}) writeFile(root.config(file), "a.com\n");
  writeFile(root.config("late.dom"), "late.com");
  std::vector<char *> names(200, none);
  names[130] = late;
  categfiles = names.data();
  numcategories = 200;
  EXPECT_EQ(inBlackLists("a.com", host, 0), 0); /* nothing is loaded yet */
  ASSERT_EQ(makeBlackLists(), 1);
  EXPECT_EQ(inBlackLists("a.com", host, 0), 1);
  EXPECT_EQ(inBlackLists("b.com", host, 0), static_cast<signed char>(131));
  freeBlackLists();
  names[5] = missing;
  EXPECT_EQ(makeBlackLists(), NETSIFT_LOAD_FAILED);
  freeBlackLists();
}

TEST(UrlList, TheShellSeesTheRootAsOneWordAndComplainsUnlessStrict) {
  const ScratchRoot root;
  string source = root.config("s"), hostile = root.path() + "/no'; touch " + root.config("run") + "; '";
  writeFile(source, "");
  char *const kept = std::exchange(installroot, hostile.data());
  for (StrictHttp = 0; StrictHttp < 2; StrictHttp++) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(readPhrase1(source.c_str(), root.config("u").c_str(), source.c_str()), 0);
    const string complaint = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), StrictHttp == 0 ? 2 : 0) << complaint;
  }
  installroot = kept;
  EXPECT_NE(access(root.config("run").c_str(), F_OK), 0);
}

TEST(BlacklistAdd, AddsOnceToTheTableOfTheSameIndex) {
  const ScratchRoot root;
  char games[] = "games", shop[] = "shop", alone[] = "alone";
  char *urlNames[] = {games, shop}, *phraseNames[] = {shop, games, alone, shop};
  for (const char *file : {"games.url", "games.dom", "shop.url", "shop.dom"}) writeFile(root.config(file), "");
  categfiles = urlNames;
  categfiles1 = phraseNames;
  numcategories = 2;
  numcategories1 = 0; /* not looked at */
  ASSERT_EQ(makeBlackLists(), 1);
  for (int i = 0; i < 2; i++) addURLToList(0, "a.com/x");
  addURLToList(2, "b.com");                                     /* no blacklist of that name */
  for (int category : {-1, 3}) addURLToList(category, "c.com"); /* 3: named, but without a table */
  EXPECT_EQ(readFile(root.config("shop.url.orig")), "a.com/x\n");
  EXPECT_EQ(readFile(root.config("alone.url.orig")), "");
  EXPECT_NE(sym_lookup_symbol(categories[0].table, "a.com/x"), nullptr);
  freeBlackLists();
}
