#include <algorithm>
#include <cstring>
#include <string>

#include "cache/recalledVerdicts.h"
#include "connection/describeRequest.h"
#include "connection/judge.h"
#include "connection/refuse.h"
#include "connection/strict/steps.h"
#include "connection/strict/tunnel.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "http/strictForward.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "scan/handOverRelay.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int badGateway = 502, gatewayTimeout = 504;
constexpr unsigned mostInterimHeads = 20;

Next failToRead(Connection &connection, const Cycle &cycle, HeadRead read, const StrictFault &fault) {
  if (read == HeadRead::clientLeft || hasLeft(connection.ends.client)) return leave(connection);
  dprintf(2, "Timeout while getting response header from proxy.\n");
  if (read == HeadRead::refused) return refuseWithError(connection, cycle, fault.status, fault.text);
  const bool closed = read == HeadRead::closed;
  return refuseWithError(connection, cycle, closed ? badGateway : gatewayTimeout,
                         closed ? "The server closed the connection." : "The server did not answer in time.");
}

/* An interim answer is news for a client of HTTP/1.1 and would confuse one of HTTP/1.0. */
bool passInterim(const Connection &connection, Cycle &cycle) {
  cycle.interimHeads++;
  if (cycle.target.minorVersion == 0) return true;
  cleanResponseHead(respheader, ProxyPresent == 1);
  addVia(respheader, cycle.framing.line.minorVersion);
  return sendWholeHead(connection.ends.client, respheader, clientTimeoutSeconds);
}

Next readResponseHead(Connection &connection, Cycle &cycle) {
  for (;;) {
    destroyHeader(&respheader);
    HeadScan scan;
    scan.response = true;
    const Ends &ends = connection.ends;
    const HeadRead read = readStrictHead(ends.upstream, scan, respheader, PROXY_TIMEOUT, ends.client);
    if (read == HeadRead::closed && scan.text.empty() && cycle.interimHeads == 0 && sendAgain(connection, cycle))
      continue;
    if (read != HeadRead::done) return failToRead(connection, cycle, read, scan.fault);
    const Request &request = cycle.request;
    const ResponseFraming framing = responseFraming(respheader.first, request.isHead || request.isConnect);
    if (framing.fault.status != 0) {
      return refuseWithError(connection, cycle, framing.fault.status, framing.fault.text);
    }
    cycle.framing = framing;
    cycle.responseCode = framing.line.status;
    connection.upstreams[connection.current].isHttp10 = framing.line.minorVersion == 0;
    if (framing.kind != BodyKind::interim) return Next::step;
    if (cycle.interimHeads == mostInterimHeads) {
      return refuseWithError(connection, cycle, badGateway, "The server does not come to an answer.");
    }
    if (!passInterim(connection, cycle)) return endCall(connection, callFailed);
  }
}

/* What follows a 101 is another protocol, and what follows a CONNECT that a proxy accepted is the client's own. A 101
   that the client did not ask for would let its next request, to whatever site, go to this one unread. */
Next relayTunnel(Connection &connection, Cycle &cycle) {
  const bool connected = cycle.request.isConnect && cycle.responseCode >= 200 && cycle.responseCode <= 299;
  if (cycle.framing.kind != BodyKind::switching && !connected) return Next::step;
  if (!connected && !(cycle.asksToSwitch && acceptsWebSocket(respheader.first))) {
    return refuseWithError(connection, cycle, badGateway,
                           "The server changes to a protocol that it was not asked for.");
  }
  sendWholeHead(connection.ends.client, respheader, clientTimeoutSeconds);
  if (connected) return runTunnel(connection, cycle);
  noteOutcome(NETSIFT_REQUEST_RELAYED);
  describeRequest(cycle);
  handOverRelay(connection.ends.client, connection.ends.upstream, tunnelIdleSeconds(), cycle.request.url.c_str());
  return endCall(connection, callEnded);
}

/* A refused CONNECT is answered as to any other request; its body is not the tunnel's. */
Next frameRefusedConnect(Connection &connection, Cycle &cycle) {
  if (!cycle.request.isConnect) return Next::step;
  cycle.framing = responseFraming(respheader.first, false);
  const StrictFault &fault = cycle.framing.fault;
  return fault.status == 0 ? Next::step : refuseWithError(connection, cycle, fault.status, fault.text);
}

/* The type as browsers read it: in any case of letters, without parameters; two that differ are none. */
Next readType(Connection &connection, Cycle &cycle) {
  std::string type;
  if (!readMediaType(respheader.first, type)) {
    return refuseWithError(connection, cycle, badGateway, "The server gives its answer two types.");
  }
  cycle.contentType.reset(type.empty() ? nullptr : strdup(type.c_str()));
  cycle.responseLength = static_cast<int32_t>(std::min<uint64_t>(cycle.framing.length, INT32_MAX));
  return Next::step;
}

Next exemptWhitelisted(Connection &, Cycle &cycle) {
  cycle.isExempt = vs_tunnel == 1 && cycle.isWhite;
  if (cycle.isExempt) dprintf(7, "making tunnel (4)..\n");
  return Next::step;
}

Next skipRules(Connection &, Cycle &cycle) {
  applySkipRules(cycle, false);
  return Next::step;
}

/* A page that is known to be clean still travels framed: a raw relay would let the next request by unread. */
Next consultCache(Connection &connection, Cycle &cycle) {
  if (cycle.isExempt || cycle.framing.kind == BodyKind::none || !mayConsultCache(cycle)) return Next::step;
  const int32_t verdict = recallVerdict(verdictKey(cycle), cycle.date.get());
  if (verdict == verdictInfected || verdict == verdictOffensive) return refuseKnown(connection, cycle, verdict);
  cycle.isExempt = cycle.isKnownClean = verdict == verdictClean;
  if (cycle.isKnownClean) noteCache(NETSIFT_CACHE_HIT);
  if (verdict != verdictClean) noteUnknown(cycle, "responseSteps.cpp", __LINE__);
  return Next::step;
}

Next checkType(Connection &connection, Cycle &cycle) {
  traceMiss(cycle);
  const bool isExamined = cycle.framing.kind != BodyKind::none && !cycle.isKnownClean;
  return isExamined ? checkContentType(connection, cycle) : Next::step;
}

constexpr Step steps[] = {
    {"response head", readResponseHead},
    {"tunnel", relayTunnel},
    {"refused CONNECT", frameRefusedConnect},
    {"date", readDate},
    {"type", readType},
    {"skip rules", skipRules},
    {"whitelisted", exemptWhitelisted},
    {"verdict cache", consultCache},
    {"content type", checkType},
    {"delivery", deliver},
};

}  // namespace

std::span<const Step> strictResponseSteps() { return steps; }

bool relayInterim(Connection &connection, Cycle &cycle) {
  const Ends &ends = connection.ends;
  HeadScan scan;
  scan.response = true;
  destroyHeader(&respheader);
  if (readStrictHead(ends.upstream, scan, respheader, PROXY_TIMEOUT, ends.client) != HeadRead::done) return false;
  cycle.framing = responseFraming(respheader.first, false);
  cycle.responseCode = cycle.framing.line.status;
  return cycle.framing.kind == BodyKind::interim && cycle.interimHeads < mostInterimHeads &&
         passInterim(connection, cycle);
}

}  // namespace netsift
