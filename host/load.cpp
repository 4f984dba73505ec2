#include "host/load.h"

#include <cerrno>
#include <cstring>

#include "host/files.h"
#include "host/hostConfig.h"
#include "host/installCheck.h"
#include "netsift.h"

namespace netsift::host {

namespace {

struct Load {
  const char *what;
  int (*make)();
};

/* What the checks before cannot see: memory, and files that changed meanwhile. */
constexpr Load loads[] = {{"the list whitelist", makeWhiteList},
                          {"the list adserver", makeADList},
                          {"the list popup", makePOPUPList},
                          {"the blacklists", makeBlackLists},
                          {"the phrase lists", makePhraseLists}};

}  // namespace

void loadLibrary(Problems &problems) {
  /* The log first: the loaders say there what they stumble over. The two flags at 1: with both off and no tag, lines
     would be without their message. */
  std::string log = logPath(hostConfig.debugFile);
  const char *path = hostConfig.debugLevel > 0 ? log.c_str() : nullptr;
  if (dInitialise(path, static_cast<int8_t>(hostConfig.debugLevel), hostConfig.debugTag.c_str(), 1, 1) != 1)
    problems.push_back({true, log, 0, "log.debug_file", std::string("cannot be opened: ") + std::strerror(errno)});
  for (const Load &load : loads) {
    if (load.make() == 1) continue;
    problems.push_back({true, "", 0, "", std::string(load.what) + " cannot be loaded; the debug log says why"});
    return;
  }
  forgetVerdicts(problems); /* last: until now the loading before still stored verdicts, and a failure leaves them */
}

}  // namespace netsift::host
