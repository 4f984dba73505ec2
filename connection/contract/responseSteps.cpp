#include <cstdio>
#include <cstring>

#include "cache/dbcache.h"
#include "connection/contract/steps.h"
#include "connection/judge.h"
#include "connection/refuse.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr uint32_t heldTail = 8192; /* what a threshold derived from the length leaves unscanned until the end */
constexpr int tracedUrlLimit = 256; /* printed beside the URL's length; limits nothing */
constexpr char source[] = "responseSteps.cpp";

/* Sends the response's head and relays the rest until either side closes; the connection ends with it. */
Next relayUntouched(Connection &connection, int32_t result) {
  sendHeader(connection.ends.client, &respheader);
  tunnel(connection.ends.client, connection.ends.upstream, relayIdleSeconds);
  return endCall(connection, result);
}

Next readResponseHead(Connection &connection, Cycle &cycle) {
  destroyHeader(&respheader);
  if (getHeader(connection.ends.upstream, &respheader, PROXY_TIMEOUT) != 0) return Next::step;
  dprintf(2, "Timeout while getting response header from proxy.\n");
  return refuse(connection, cycle, {.reason = reasonFor(Why::noAnswer), .page = Page::error});
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
  if (!zeroLength && !cycle.request.isHead) return Next::step;
  if (sendHeader(connection.ends.client, &respheader) != 0) return Next::cycle;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return endCall(connection, callFailed);
}

Next readType(Connection &, Cycle &cycle) {
  cycle.contentType.reset(getContentType(respheader.first));
  return Next::step;
}

Next skipRules(Connection &, Cycle &cycle) {
  applySkipRules(cycle, true);
  return Next::step;
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
  return relayUntouched(connection, callEnded);
}

Next readCode(Connection &, Cycle &cycle) {
  cycle.responseCode = getResponseCode(respheader.first);
  dprintf(7, "content type is %s, length %d, code %d\n", peerText(cycle.contentType.get()), cycle.contentLength,
          cycle.responseCode);
  dprintf(7, "skip scan %d, no-cache %d, query %d, url length %zu of %d\n", cycle.skipScan, isNoCache(),
          cycle.request.hasQuery, cycle.request.url.size(), tracedUrlLimit);
  return Next::step;
}

Next relayKnownClean(Connection &connection, const Cycle &cycle) {
  noteCache(NETSIFT_CACHE_HIT);
  const Next next = relayUntouched(connection, callEnded);
  if (storeVerdict(cycle, verdictClean)) {
    dprintf(7, "URL Updated in Cache.[tunnel]\n");
  } else {
    dprintf(7, "Error in URL Updation in Cache.[tunnel]\n");
  }
  return next;
}

/* Asked anew for each verdict: another connection may have stored one in between. */
Next consultCache(Connection &connection, Cycle &cycle) {
  if (!mayConsultCache(cycle)) return Next::step;
  if (knownVerdict(cycle) == verdictClean) return relayKnownClean(connection, cycle);
  if (knownVerdict(cycle) == verdictInfected) return refuseKnown(connection, cycle, verdictInfected);
  if (knownVerdict(cycle) == verdictOffensive) return refuseKnown(connection, cycle, verdictOffensive);
  noteUnknown(cycle, source, __LINE__);
  return Next::step;
}

Next noteClosing(Connection &connection, Cycle &cycle) {
  cycle.connectionCloses = isconnectionclosed(respheader.first) == 1;
  if (cycle.connectionCloses) connection.stop = true;
  traceMiss(cycle);
  return Next::step;
}

/* One read's worth of the rest is relayed here; what is left of a longer page stays on the socket. */
Next relayOtherCodes(Connection &connection, Cycle &cycle) {
  if (cycle.responseCode >= 101 && cycle.responseCode <= 299) return Next::step;
  sendHeader(connection.ends.client, &respheader);
  tunnel1(connection.ends.client, connection.ends.upstream, relayIdleSeconds);
  return Next::cycle;
}

Next relaySkipped(Connection &connection, Cycle &cycle) {
  if (!cycle.skipScan || !cycle.connectionCloses) return Next::step;
  dprintf(7, "%s", virwhite_reason);
  return relayUntouched(connection, callEnded);
}

/* A skip decided above reaches no further than this: bodies that are read here are scanned all the same. */
Next readTransferCoding(Connection &, Cycle &cycle) {
  const Text coding(getTransferEncoding(respheader.first));
  cycle.isChunked = coding && std::strstr(coding.get(), "chunked") != nullptr;
  if (cycle.isChunked) removeTransferEncoding(respheader.first);
  cycle.skipScan = false;
  return Next::step;
}

Next checkType(Connection &connection, Cycle &cycle) { return checkContentType(connection, cycle); }

Next relayConnect(Connection &connection, Cycle &cycle) {
  if (!cycle.request.isConnect) return Next::step;
  logTunneled(cycle.request.url.c_str());
  noteOutcome(NETSIFT_REQUEST_TUNNELED);
  return relayUntouched(connection, callTunneled);
}

constexpr Step steps[] = {
    {"response head", readResponseHead},
    {"head only", answerHeadOnly},
    {"date", readDate},
    {"type", readType},
    {"skip rules", skipRules},
    {"scan threshold", deriveThreshold},
    {"whitelisted relay", relayWhitelisted},
    {"response code", readCode},
    {"verdict cache", consultCache},
    {"closing", noteClosing},
    {"other codes", relayOtherCodes},
    {"skipped relay", relaySkipped},
    {"transfer coding", readTransferCoding},
    {"content type", checkType},
    {"CONNECT", relayConnect},
    {"body", relayBody},
};

}  // namespace

std::span<const Step> contractResponseSteps() { return steps; }

}  // namespace netsift
