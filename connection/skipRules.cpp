#include "connection/skipRules.h"

#include <cstdio>

#include "log/debugLog.h"
#include "log/peerText.h"
#include "scan/virusWhitelist.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace netsift {
namespace {

bool isListed(const char *text, const char *file) {
  const Text path = installPath({configFolder, file});
  return path && inVirusWhiteList_hash(text, path.get()) != 0;
}

}  // namespace

void skipScan(Cycle &cycle, const char *why) {
  cycle.skipScan = true;
  std::snprintf(virwhite_reason, sizeof virwhite_reason, "%s", why);
}

void skipListedHost(Cycle &cycle) {
  const char *host = cycle.request.hostname.c_str();
  if (!isListed(host, "viruswhite_dom.conf")) return;
  dprintf(7, "Virus Sacnning is skipped.[Reason::The domain (%s) is whitelisted]\n", peerText(host));
  skipScan(cycle, "Tunneling the whitelisted domain...\n");
}

void skipListedType(Cycle &cycle) {
  if (!cycle.contentType || VirWL_MimeType == 0 || !isListed(cycle.contentType.get(), "viruswhite.conf")) return;
  dprintf(7, "Virus scanning is skipped.[Reason::content is whitelisted]\n");
  skipScan(cycle, "Tunneling the whitelisted content type...\n");
}

}  // namespace netsift
