#include "host/installCheck.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include "host/files.h"
#include "host/hostConfig.h"
#include "tests/support/support.h"

using namespace netsift::host;

namespace {

std::string said(const Problems &problems, const std::string &file) {
  std::string all;
  for (const Problem &problem : problems) {
    if (problem.file == file) all += problemLine(problem).substr(file.size() + 2) + "\n";
  }
  return all;
}

}  // namespace

TEST(InstallCheck, IPv6ClientsNeedTheStrictRoad) {
  const ScratchRoot root;
  for (const auto &[place, strict, refused] :
       {std::tuple{"[::]:8080", 0, true}, {"[::]:8080", STRICT_HTTP, false}, {"0.0.0.0:8080", 0, false}}) {
    hostConfig.listen.resize(1);
    ASSERT_TRUE(netsift::parseEndpoint(place, hostConfig.listen.data()));
    StrictHttp = strict;
    static char proxy[] = "::1";
    proxyip = refused || strict ? proxy : nullptr;
    ProxyPresent = proxyip != nullptr;
    Problems problems;
    checkInstallation(problems);
    for (const char *key : {"listen.address", "upstream.proxy"})
      EXPECT_EQ(std::ranges::count(problems, key, &Problem::key), refused) << key << place << strict;
  }
}

TEST(InstallCheck, ACacheThatCannotBeMadeWholeLeavesTheOldOneAndAPipeIsNotOpened) {
  const ScratchRoot root;
  const std::string cache = rooted(cacheDatabase);
  writeFile(cache, "verdicts");
  Problems problems;
  auto forgetWithoutRoom = [&] { /* in a process of its own: GDBM leaks where it cannot make a file */
                                 std::signal(SIGXFSZ, SIG_IGN);
                                 rlimit limit{100, 100};
                                 setrlimit(RLIMIT_FSIZE, &limit);
                                 forgetVerdicts(problems);
                                 _exit(said(problems, cache).starts_with("cache.enabled: cannot be made: ") ? 0 : 1);
  };
  EXPECT_EXIT(forgetWithoutRoom(), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(readFile(cache) == "verdicts" && !exists(cache + ".new"));

  hostConfig.keepCache = 1;
  unlink(cache.c_str());
  mkfifo(cache.c_str(), 0600);
  checkInstallation(problems = {});
  EXPECT_TRUE(said(problems, cache).starts_with("cache.enabled: is a pipe or device")) << said(problems, cache);
}
