#include "connection/judge.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "cache/dbcache.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "content/pageWords.h"
#include "content/phraseScan.h"
#include "content/phraseTable.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
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

void skipScan(Cycle &cycle, const char *why) {
  cycle.skipScan = true;
  std::snprintf(virwhite_reason, sizeof virwhite_reason, "%s", why);
}

/* Those of viruswhite_dom.conf. */
void skipListedHost(Cycle &cycle) {
  const char *host = cycle.request.hostname.c_str();
  if (!isListed(host, "viruswhite_dom.conf")) return;
  dprintf(7, "Virus Sacnning is skipped.[Reason::The domain (%s) is whitelisted]\n", peerText(host));
  skipScan(cycle, "Tunneling the whitelisted domain...\n");
}

/* Those of viruswhite.conf, while VirWL_MimeType is on. */
void skipListedType(Cycle &cycle) {
  if (!cycle.contentType || VirWL_MimeType == 0 || !isListed(cycle.contentType.get(), "viruswhite.conf")) return;
  dprintf(7, "Virus scanning is skipped.[Reason::content is whitelisted]\n");
  skipScan(cycle, "Tunneling the whitelisted content type...\n");
}

}  // namespace

Next readDate(Connection &, Cycle &cycle) {
  if (disableCache != 1) cycle.date.reset(getModificationTime(respheader.first));
  publishDate(cycle);
  return Next::step;
}

Next checkContentType(Connection &connection, const Cycle &cycle) {
  const char *type = cycle.contentType.get();
  if (type == nullptr || isBannedContentType(type) == 0 || cycle.isWhite) return Next::step;
  dprintf(4, "blocking content %s\n", peerText(type));
  return refuse(connection, cycle,
                {.reason = sentenceFor(Why::contentType, type),
                 .isRecorded = logmime != 0,
                 .kind = "MIME Blocked",
                 .what = type,
                 .line = std::string("MIME Blocked:") + peerText(type),
                 .result = callFailed,
                 .blocked = NETSIFT_BLOCK_TYPE});
}

void traceMiss(const Cycle &cycle) {
  const char *url = cycle.request.url.c_str();
  dprintf(7, "%10d %ld %s TCP_MISS/200 %d %s %s - %s %s\n", static_cast<int>(time(nullptr)),
          static_cast<long>(cycle.responseLength), clientip, cycle.responseCode, cycle.request.method.c_str(),
          peerText(url), peerText(url), peerText(cycle.contentType.get()));
}

void applySkipRules(Cycle &cycle, bool skipsStyleSheets) {
  if (virusscan == 0) return;
  const std::string &url = cycle.request.url;
  if (VirWL_Domain != 0) {
    skipListedHost(cycle);
  } else if (skipsStyleSheets && url.ends_with(".css")) {
    dprintf(7, "Virus Sacnning is skipped.[Reason::The file is .css %s]\n", peerText(url.c_str()));
    skipScan(cycle, "Tunneling the .css file...\n");
  } else {
    skipListedType(cycle);
  }
}

bool isNoCache() {
  const Text noCache(isPragmaNoCache(respheader.first));
  return static_cast<bool>(noCache);
}

bool mayConsultCache(const Cycle &cycle) {
  return cycle.responseCode == 200 && !cycle.skipScan && !cycle.request.hasQuery && disableCache != 1 && !isNoCache();
}

std::string verdictKey(const Cycle &cycle) {
  const StrictTarget &target = cycle.target;
  const std::string &url = cycle.request.url;
  if (target.scheme.empty() || (target.scheme == "http" && target.port == 80)) return url;
  const std::string scheme = target.scheme == "http" ? "" : target.scheme + "://";
  return scheme + target.host + ":" + std::to_string(target.port) +
         url.substr(std::min(target.host.size(), url.size()));
}

int32_t knownVerdict(const Cycle &cycle) {
  return if_url_scanned_check_ok(verdictKey(cycle).c_str(), cycle.date.get());
}

void noteUnknown(Cycle &cycle, const char *file, int line) {
  dprintf(7, "%s:%d :: NOT present in the database\n", file, line);
  noteCache(NETSIFT_CACHE_MISS);
  cycle.cacheEligible = true;
}

Next refuseKnown(Connection &connection, Cycle &cycle, int verdict) {
  const char *url = cycle.request.url.c_str();
  addto_urlcache_db(verdictKey(cycle).c_str(), cycle.date.get(), verdict);
  noteCache(NETSIFT_CACHE_HIT);
  const bool isInfected = verdict == verdictInfected;
  const Why why = isInfected ? Why::infected : Why::knownOffensive;
  const Next next = refuse(connection, cycle,
                           {.reason = sentenceFor(why),
                            .result = callEnded,
                            .blocked = isInfected ? NETSIFT_BLOCK_VIRUS : NETSIFT_BLOCK_PHRASES});
  logKnown(url, verdict == verdictInfected ? "INFECTED" : "Offensive content.");
  return next;
}

bool mayStore(const Cycle &cycle) { return cycle.cacheEligible && disableCache != 1; }

bool storeVerdict(const Cycle &cycle, int verdict) {
  return addto_urlcache_db(verdictKey(cycle).c_str(), cycle.date.get(), verdict) == 1;
}

void storeClean(const Cycle &cycle, const char *file, int line) {
  const std::string &url = cycle.request.url;
  dprintf(7, "%s:%d::Adding %s-%d-%s-%d in cache.\n", file, line, peerText(url.c_str()), static_cast<int>(url.size()),
          peerText(cycle.date.get()), verdictClean);
  if (cycle.date) storeVerdict(cycle, verdictClean);
}

void prepareContentFilter() {
  if (categweight != nullptr) std::fill_n(categweight, std::min<size_t>(numcategories, phraseSlots()), 0);
  iniContentFilter();
}

void noticePopups(Cycle &cycle, const char *buffer, size_t length) {
  if (memmem(buffer, length, "window.open", 11) == nullptr) return;
  cycle.cacheEligible = false;
  dprintf(7, "POPUP caught and blocked for site %s\n", peerText(cycle.request.url.c_str()));
}

namespace {

void refuseJudged(Connection &connection, const Cycle &cycle) {
  answer(connection, cycle, {.result = callFailed});
  const std::string &url = cycle.request.url;
  logBlocked(url.c_str(), "offensive content");
  if (mayStore(cycle)) {
    dprintf(7, "Adding %s-%d-%s-%d in cache.\n", peerText(url.c_str()), static_cast<int>(url.size()),
            peerText(cycle.date.get()), verdictOffensive);
    if (cycle.date) storeVerdict(cycle, verdictOffensive);
  }
}

}  // namespace

bool refuseOffensive(Connection &connection, const Cycle &cycle, char *piece, size_t length, bool first) {
  dprintf(7, "preprocessing body...\n");
  if (!isTextBlocked(piece, static_cast<int32_t>(length), first)) return false;
  refuseJudged(connection, cycle);
  return true;
}

bool refuseWords(Connection &connection, const Cycle &cycle, PageWords &words, std::span<char> window, size_t fresh,
                 bool first, bool isLast, bool mayWait) {
  dprintf(7, "preprocessing body...\n");
  if (!first || !isRatingBlocked(window.data(), static_cast<int32_t>(window.size()))) {
    int category = judgeWords(words, {window.data() + fresh, window.size() - fresh}, isLast);
    if (category == 0 && !mayWait) category = words.atEnd;
    if (category == 0) return false;
    recordOffensive(category);
  }
  refuseJudged(connection, cycle);
  return true;
}

void refuseInfected(Connection &connection, const Cycle &cycle, const char *virusName) {
  std::string_view name = virusName; /* which may end as the engine's line did */
  while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.remove_suffix(1);
  std::string signature;
  if (EscapeText == 1 && !name.empty()) signature.append(": ").append(name);
  const Refusal refusal{.reason = reasonFor(Why::infected, signature),
                        .isRecorded = true, /* whatever the log switches say */
                        .kind = "Virus",
                        .what = "Infected Content" + signature,
                        .line = std::string("Infected Content:Virus-") + peerText(virusName),
                        .blocked = NETSIFT_BLOCK_VIRUS};
  if (isLogged()) record.signature = name;
  announce(cycle, refusal);
  if (mayStore(cycle) && storeVerdict(cycle, verdictInfected)) connection.alreadyCached = true;
  answer(connection, cycle, refusal);
}

void traceUnscanned(int32_t verdict) {
  dprintf(
      2, "%s",
      verdict == NETSIFT_SCAN_NOT_RUNNING ? "--Anti Virus Server is not running\n" : "Error in scanning for virus\n");
}

void refuseUnscanned(Connection &connection, const Cycle &cycle, int32_t verdict) {
  refuse(connection, cycle,
         {.reason = reasonFor(verdict == NETSIFT_SCAN_NOT_RUNNING ? Why::noEngine : Why::scanFailed),
          .blocked = NETSIFT_BLOCK_UNSCANNED});
}

bool sendScript(const Connection &connection, Send send) {
  return send(connection, popupblocker, static_cast<size_t>(std::max(popuplen, 0)));
}

bool sendWithScript(const Connection &connection, Send send, const char *bytes, size_t length, size_t index) {
  return send(connection, bytes, index) && sendScript(connection, send) &&
         send(connection, bytes + index, length - index);
}

}  // namespace netsift
