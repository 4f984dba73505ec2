#include "host/madeLists.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/files.h"
#include "netsift.h"
#include "tests/support/support.h"

using namespace netsift::host;

namespace {

/* The three lists that are always loaded, and what is said as they are made. */
struct Lists {
  ScratchRoot root;
  Problems problems;
  Lists() {
    for (const std::string name : {"whitelist", "adserver", "popup"}) {
      for (const char *suffix : {".dom", ".phrase", ".url.orig"}) write(name + suffix, "");
    }
  }
  void write(const std::string &name, const std::string &text) const { writeFile(root.config(name), text); }
  std::string read(const std::string &name) const { return readFile(root.config(name)); }
  std::string said() const { return problems.size() == 1 ? problemLine(problems[0]) : std::to_string(problems.size()); }
};

/* Whether the library, shown that root, loads a list "popup" with the URL or host in it. */
bool loads(std::string root, const char *url, char *host) {
  char *own = std::exchange(installroot, root.data());
  const bool listed = makePOPUPList() == 1 && inPOPUPList(url, host, 0) == 1;
  installroot = own;
  freePOPUPList();
  return listed;
}

}  // namespace

TEST(MadeLists, WhatIsMadeIsLoadedFirstAndThenTakesItsPlace) {
  Lists lists;
  lists.write("popup.url", "old\n");
  chmod(lists.root.config("popup.url").c_str(), 0640);
  lists.write("popup.url.orig", "a.example/x\n");
  lists.write("popup.phrase", "<zonk>5\n");
  lists.write("popup.reported.url.orig", "c.example/y"); /* cut by a crash */
  lists.write("popup.dom", "d.example\n");
  const MadeLists made = makeLists(lists.problems);
  char other[] = "b.example", listed[] = "d.example";
  for (const char *url : {"a.example/x", "zonk.example", "c.example/y"})
    EXPECT_TRUE(loads(made.root, url, other)) << url;
  EXPECT_TRUE(loads(made.root, "none", listed) && !loads(made.root, "old", other));
  EXPECT_EQ(lists.read("popup.url"), "old\n") << "not before all is loaded";
  placeLists(made, lists.problems);
  dropLists(made);
  EXPECT_EQ(lists.said() + lists.read("popup.url"), "0a.example/x\nzonk*\nwww.zonk*\n\nc.example/y\n");
  EXPECT_EQ(std::filesystem::status(lists.root.config("popup.url")).permissions(), std::filesystem::perms(0640));
  EXPECT_FALSE(exists(made.root) || exists(lists.root.config("popup.url.new")));
}

TEST(MadeLists, WhatCannotBeMadeIsUsedAsItStandsWithWhatWasReported) {
  Lists lists;
  std::filesystem::remove(lists.root.config("popup.phrase"));
  lists.write("popup.url", "a.example/old");
  lists.write("popup.reported.url.orig", "c.example/y\n");
  const MadeLists made = makeLists(lists.problems);
  char host[] = "b.example";
  EXPECT_TRUE(loads(made.root, "a.example/old", host) && loads(made.root, "c.example/y", host));
  placeLists(made, lists.problems);
  dropLists(made);
  EXPECT_EQ(lists.said() + lists.read("popup.url"), "0a.example/old");
}

TEST(MadeLists, AListInAFormatIsLoadedInItsMeaning) {
  Lists lists;
  const std::string written = "\xEF\xBB\xBF# format: urls\nhttp://A.example/x%20y/ # z\n# nothing\n";
  lists.write("popup.url.orig", written);
  lists.write("popup.dom", "! format: adblock\n||D.example^\n||www.e.example^\n");
  lists.write("popup.phrase", "<zonk>5\n");
  const MadeLists made = makeLists(lists.problems);
  char other[] = "e.example", listed[] = "www.d.example"; /* what exempts is not widened */
  for (const char *url : {"a.example/x y", "zonk.example"}) EXPECT_TRUE(loads(made.root, url, other)) << url;
  EXPECT_TRUE(loads(made.root, "none", listed) && !loads(made.root, "# nothing", other) &&
              !loads(made.root, "none", other));
  placeLists(made, lists.problems);
  dropLists(made);
  EXPECT_EQ(lists.said() + lists.read("popup.url"), "0a.example/x y\nzonk*\nwww.zonk*\n\n");
  EXPECT_EQ(lists.read("popup.url.orig"), written);

  std::filesystem::remove(lists.root.config("popup.phrase")); /* popup.url is taken as it is */
  lists.write("popup.url", written);
  const MadeLists standing = makeLists(lists.problems);
  EXPECT_TRUE(loads(standing.root, "a.example/x y", other));
  dropLists(standing);
  lists.write("popup.url", "# format: hosts\n");
  dropLists(makeLists(lists.problems));
  EXPECT_TRUE(lists.said().starts_with(lists.root.config("popup.url") + ": names a format of hosts")) << lists.said();
  lists.problems.clear();
  lists.write("popup.dom", "# format: urls\n");
  dropLists(makeLists(lists.problems));
  EXPECT_TRUE(lists.said().starts_with(lists.root.config("popup.dom") + ": names a format of URLs")) << lists.said();
}

/* A limit on the size of files does what a full disk does, and needs no rights. */
TEST(MadeLists, ADiskThatTakesNoMoreRefusesTheListAndLeavesTheOldOne) {
  std::signal(SIGXFSZ, SIG_IGN);
  const std::pair<const char *, size_t> cases[] = {{"popup.url.orig", 60000},
                                                   {"popup.url.orig", 8192}, /* all but the empty line at the end */
                                                   {"popup.reported.url.orig", 8192}};
  for (const auto &[name, size] : cases) {
    Lists lists;
    lists.write("popup.url", "old\n");
    lists.write(name, std::string(size, 'x'));
    rlimit limit{8192, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const MadeLists made = makeLists(lists.problems);
    limit.rlim_cur = RLIM_INFINITY;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(lists.said().starts_with(lists.root.config("popup.url") + ": cannot be ")) << lists.said();
    EXPECT_TRUE(lists.said().ends_with(": File too large; raise the limit on the size of files")) << lists.said();
    dropLists(made);
    EXPECT_EQ(lists.read("popup.url"), "old\n");
    EXPECT_FALSE(exists(lists.root.config("popup.url.new")));
  }
}
