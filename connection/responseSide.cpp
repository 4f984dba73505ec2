#include "connection/responseSide.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "cache/dbcache.h"
#include "connection/answer.h"
#include "connection/bodyPhase.h"
#include "connection/requestSide.h"
#include "connection/upstream.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "scan/tunnel.h"
#include "scan/virusWhitelist.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace netsift {
namespace {

constexpr uint32_t heldTail = 8192; /* what a threshold derived from the length leaves unscanned until the end */
constexpr int tracedUrlLimit = 256; /* printed beside the URL's length; limits nothing */
constexpr int verdictClean = 0, verdictInfected = 1, verdictOffensive = 2;

/* Sends the response's head and relays the rest until either side closes; the connection ends with it. */
Next relayUntouched(Connection &connection, int32_t result) {
  sendHeader(clientsock, &respheader);
  tunnel(clientsock, proxysock, relayIdleSeconds);
  return endCall(connection, result);
}

Next failSendingHead(Connection &connection) {
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return endCall(connection, -1);
}

Next readResponseHead(Connection &connection, Cycle &) {
  destroyHeader(&respheader);
  if (getHeader(proxysock, &respheader, PROXY_TIMEOUT) != 0) return Next::step;
  dprintf(2, "Timeout while getting response header from proxy.\n");
  snprintf(reason, sizeof reason, "Timeout while getting response from server.\n");
  sendError(clientsock);
  return endCall(connection, -1);
}

void traceResponseHead() {
  dprintf(4, "-------------------start of respheader------------------------------\n");
  traceHeadLines(respheader);
  dprintf(4, "-------------------end of respheader------------------------------\n");
}

Next answerHeadOnly(Connection &connection, Cycle &cycle) {
  traceResponseHead();
  cycle.responseLength = getContentLength(respheader.first);
  const Text zeroLength(getContentLength1(respheader.first));
  if (!zeroLength && !cycle.isHead) return Next::step;
  return sendHeader(clientsock, &respheader) == 0 ? failSendingHead(connection) : Next::cycle;
}

bool isListed(const char *text, const char *file) {
  const Text path = installPath({configFolder, file});
  return path && text != nullptr && inVirusWhiteList_hash(text, path.get()) != 0;
}

void skipBecause(Cycle &cycle, const char *why) {
  cycle.skipScan = true;
  snprintf(virwhite_reason, sizeof virwhite_reason, "%s", why);
}

Next deriveThreshold(Connection &connection, Cycle &cycle) {
  cycle.contentLength = getContentLength(respheader.first);
  if (connection.scanThreshold == 0 && cycle.contentLength > static_cast<int32_t>(heldTail)) {
    connection.scanThreshold = static_cast<uint32_t>(cycle.contentLength) - heldTail;
  }
  return Next::step;
}

Next relayWhitelisted(Connection &connection, Cycle &cycle) {
  if (vs_tunnel != 1 || !cycle.isWhite) return Next::step;
  dprintf(7, "making tunnel (4)..\n");
  return relayUntouched(connection, 1);
}

bool isNoCache() {
  const Text noCache(isPragmaNoCache(respheader.first));
  return static_cast<bool>(noCache);
}

Next readCode(Connection &, Cycle &cycle) {
  cycle.responseCode = getResponseCode(respheader.first);
  dprintf(7, "content type is %s, length %d, code %d\n", peerText(cycle.contentType.get()), cycle.contentLength,
          cycle.responseCode);
  dprintf(7, "skip scan %d, no-cache %d, query %d, url length %zu of %d\n", cycle.skipScan, isNoCache(), cycle.hasQuery,
          std::strlen(url), tracedUrlLimit);
  return Next::step;
}

Next relayKnownClean(Connection &connection, const Cycle &cycle) {
  const Next next = relayUntouched(connection, 1);
  if (addto_urlcache_db(url, cycle.date.get(), verdictClean) == 1) {
    dprintf(7, "URL Updated in Cache.[tunnel]\n");
  } else {
    dprintf(7, "Error in URL Updation in Cache.[tunnel]\n");
  }
  return next;
}

Next consultCache(Connection &connection, Cycle &cycle) {
  if (!mayConsultCache(cycle)) return Next::step;
  switch (if_url_scanned_check_ok(url, cycle.date.get())) {
    case verdictClean:
      return relayKnownClean(connection, cycle);
    case verdictInfected:
      return blockKnown(connection, cycle, verdictInfected, "INFECTED");
    case verdictOffensive:
      return blockKnown(connection, cycle, verdictOffensive, "Offensive content.");
    default:
      dprintf(7, "%s:%d :: NOT present in the database\n", "responseSide.cpp", __LINE__);
      cycle.cacheEligible = true;
      return Next::step;
  }
}

Next noteClosing(Connection &connection, Cycle &cycle) {
  cycle.connectionCloses = isconnectionclosed(respheader.first) == 1;
  if (cycle.connectionCloses) connection.stop = true;
  traceMiss(cycle);
  return Next::step;
}

/* One read's worth of the rest is relayed here; what is left of a longer page stays on the socket. */
Next relayOtherCodes(Connection &, Cycle &cycle) {
  if (cycle.responseCode >= 101 && cycle.responseCode <= 299) return Next::step;
  sendHeader(clientsock, &respheader);
  tunnel1(clientsock, proxysock, relayIdleSeconds);
  return Next::cycle;
}

Next relaySkipped(Connection &connection, Cycle &cycle) {
  if (!cycle.skipScan || !cycle.connectionCloses) return Next::step;
  dprintf(7, "%s", virwhite_reason);
  return relayUntouched(connection, 1);
}

/* A skip decided above reaches no further than this: bodies that are read here are scanned all the same. */
Next readTransferCoding(Connection &, Cycle &cycle) {
  const Text coding(getTransferEncoding(respheader.first));
  cycle.isChunked = coding && std::strstr(coding.get(), "chunked") != nullptr;
  if (cycle.isChunked) removeTransferEncoding(respheader.first);
  cycle.skipScan = false;
  return Next::step;
}

Next relayConnect(Connection &connection, Cycle &cycle) {
  if (!cycle.isConnect) return Next::step;
  dprintf(1, "Client IP:%s,CONTENT TYPE:UNKNOWN,HOST NAME:UNKNOWN,REQUESTED URL:%s\n", clientip, peerText(url));
  dprintf(1, "Client IP:%s,URL:%s,STATUS:TUNNELED,HTTPS REQUEST\n", clientip, peerText(url));
  return relayUntouched(connection, 0);
}

constexpr Step steps[] = {
    {"response head", readResponseHead}, {"head only", answerHeadOnly},       {"date and type", readDateAndType},
    {"skip rules", applySkipRules},      {"scan threshold", deriveThreshold}, {"whitelisted relay", relayWhitelisted},
    {"response code", readCode},         {"verdict cache", consultCache},     {"closing", noteClosing},
    {"other codes", relayOtherCodes},    {"skipped relay", relaySkipped},     {"transfer coding", readTransferCoding},
    {"content type", checkContentType},  {"CONNECT", relayConnect},           {"body", runBodyPhase},
};

}  // namespace

Next readDateAndType(Connection &, Cycle &cycle) {
  dateAndTime1 = nullptr;
  if (disableCache != 1) {
    cycle.date.reset(getModificationTime(respheader.first));
    dateAndTime1 = cycle.date.get();
  }
  cycle.contentType.reset(getContentType(respheader.first));
  return Next::step;
}

/* The rules for style sheets and content types apply only while the rule for hosts is off. */
Next applySkipRules(Connection &, Cycle &cycle) {
  if (virusscan == 0) return Next::step;
  if (VirWL_Domain != 0) {
    if (!isListed(hostname, "viruswhite_dom.conf")) return Next::step;
    dprintf(7, "Virus Sacnning is skipped.[Reason::The domain (%s) is whitelisted]\n", peerText(hostname));
    skipBecause(cycle, "Tunneling the whitelisted domain...\n");
    return Next::step;
  }
  const size_t length = std::strlen(url);
  if (!isStrict() && length >= 4 && std::strcmp(url + length - 4, ".css") == 0) {
    dprintf(7, "Virus Sacnning is skipped.[Reason::The file is .css %s]\n", peerText(url));
    skipBecause(cycle, "Tunneling the .css file...\n");
  } else if (cycle.contentType && VirWL_MimeType != 0 && isListed(cycle.contentType.get(), "viruswhite.conf")) {
    dprintf(7, "Virus scanning is skipped.[Reason::content is whitelisted]\n");
    skipBecause(cycle, "Tunneling the whitelisted content type...\n");
  }
  return Next::step;
}

Next blockKnown(Connection &connection, Cycle &cycle, int verdict, const char *what) {
  cycle.urlCopy = url; /* the block page frees it */
  addto_urlcache_db(url, cycle.date.get(), verdict);
  blockConnection(clientsock, 1);
  dprintf(7, "URL:%s,STATUS:BLOCKED,%s(In cache db)\n", peerText(cycle.urlCopy.c_str()), what);
  return endCall(connection, 1);
}

Next checkContentType(Connection &connection, Cycle &cycle) {
  const char *type = cycle.contentType.get();
  if (type == nullptr || cycle.isWhite || isBannedContentType(type) == 0) return Next::step;
  dprintf(4, "blocking content %s\n", peerText(type));
  if (logmime != 0) storeLog("MIME Blocked", type, 0);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,MIME Blocked:%s\n", clientip, peerText(url), peerText(type));
  blockConnection(clientsock, 1);
  return endCall(connection, -1);
}

bool mayConsultCache(const Cycle &cycle) {
  return cycle.responseCode == 200 && !cycle.skipScan && !cycle.hasQuery && disableCache != 1 && !isNoCache();
}

void traceMiss(const Cycle &cycle) {
  dprintf(7, "%10d %ld %s TCP_MISS/200 %d %s %s - %s %s\n", static_cast<int>(time(nullptr)),
          static_cast<long>(cycle.responseLength), clientip, cycle.responseCode, request, peerText(url), peerText(url),
          peerText(cycle.contentType.get()));
}

std::span<const Step> responseSteps() { return steps; }

}  // namespace netsift
