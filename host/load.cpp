#include "host/load.h"

#include <csignal>
#include <utility>

#include "host/files.h"
#include "host/hostConfig.h"
#include "host/installCheck.h"
#include "host/madeLists.h"
#include "netsift.h"

namespace netsift::host {

namespace {

struct Load {
  const char *what;
  int (*make)();
};

constexpr Load lists[] = {{"the list whitelist", makeWhiteList},
                          {"the list adserver", makeADList},
                          {"the list popup", makePOPUPList},
                          {"the blacklists", makeBlackLists}};
constexpr Load phraseLists = {"the phrase lists", makePhraseLists};

/* What fails here the checks before could not see: memory, and files that changed meanwhile. */
bool load(const Load &what, Problems &problems) {
  bool done = what.make() == 1;
  if (!done)
    problems.push_back({true, "", 0, "", std::string(what.what) + " cannot be loaded; the debug log says why"});
  return done;
}

/* The log first: the loaders say there what they stumble over. The two flags at 1: with both off and no tag, lines
   would be without their message. */
void openLog(Problems &problems) {
  std::string log = logPath(hostConfig.debugFile);
  const char *path = hostConfig.debugLevel > 0 ? log.c_str() : nullptr;
  if (dInitialise(path, static_cast<int8_t>(hostConfig.debugLevel), hostConfig.debugTag.c_str(), 1, 1) != 1)
    problems.push_back({true, log, 0, "log.debug_file", systemTrouble("cannot be opened")});
}

void loadLists(MadeLists &made, Problems &problems) {
  char *root = std::exchange(installroot, made.root.data());
  for (const Load &list : lists) {
    if (!load(list, problems)) break;
  }
  installroot = root;
}

}  // namespace

void loadLibrary(Problems &problems) {
  std::signal(SIGXFSZ, SIG_IGN); /* a file that grows too large is a write that fails, which is told */
  openLog(problems);
  MadeLists made = makeLists(problems);
  if (!anyFatal(problems)) loadLists(made, problems);
  if (!anyFatal(problems)) load(phraseLists, problems);
  if (!anyFatal(problems)) placeLists(made, problems);
  dropLists(made);
  /* last: until now the loading before still stored verdicts, and a failure leaves them */
  if (!anyFatal(problems)) forgetVerdicts(problems);
}

void loadAside(const std::string &folder, Problems &problems) {
  dInitialise(nullptr, 0, "", 1, 1);
  MadeLists made = makeListsAside(folder, problems);
  if (!anyFatal(problems)) loadLists(made, problems);
  if (!anyFatal(problems)) load(phraseLists, problems);
  dropLists(made);
}

}  // namespace netsift::host
