#include "connection/strictResponse.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "cache/dbcache.h"
#include "connection/answer.h"
#include "connection/answerPage.h"
#include "connection/responseSide.h"
#include "connection/strictDelivery.h"
#include "connection/strictRequest.h"
#include "http/httpHeader.h"
#include "http/strictForward.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "scan/tunnel.h"
#include "state/connection.h"

namespace netsift {
namespace {

constexpr int badGateway = 502, gatewayTimeout = 504;
constexpr unsigned mostInterimHeads = 20;

Next failToRead(Connection &connection, HeadRead read, const HeadScan &scan) {
  dprintf(2, "Timeout while getting response header from proxy.\n");
  if (read == HeadRead::refused) return strictError(connection, scan.fault.status, scan.fault.text);
  if (read == HeadRead::closed) return strictError(connection, badGateway, "The server closed the connection.");
  return strictError(connection, gatewayTimeout, "Timeout while getting response from server.\n");
}

/* An interim answer is news for a client of HTTP/1.1 and would confuse one of HTTP/1.0. */
bool passInterim(const Cycle &cycle) {
  if (cycle.target.minorVersion == 0) return true;
  cleanResponseHead(respheader, ProxyPresent == 1);
  addVia(respheader, cycle.framing.line.minorVersion);
  return sendWholeHead(clientsock, respheader, clientTimeoutSeconds);
}

Next readStrictResponse(Connection &connection, Cycle &cycle) {
  for (unsigned interim = 0; interim <= mostInterimHeads; interim++) {
    destroyHeader(&respheader);
    HeadScan scan;
    scan.response = true;
    const HeadRead read = readStrictHead(proxysock, scan, respheader, PROXY_TIMEOUT);
    if (read == HeadRead::closed && scan.text.empty() && interim == 0 && sendStrictlyAgain(connection, cycle)) continue;
    if (read != HeadRead::done) return failToRead(connection, read, scan);
    const ResponseFraming framing = responseFraming(respheader.first, cycle.isHead || cycle.isConnect);
    if (framing.fault.status != 0) return strictError(connection, framing.fault.status, framing.fault.text);
    cycle.framing = framing;
    cycle.responseCode = framing.line.status;
    if (framing.kind != BodyKind::interim) return Next::step;
    if (!passInterim(cycle)) return endCall(connection, -1);
  }
  return strictError(connection, badGateway, "The server does not come to an answer.");
}

/* What follows a 101 is another protocol, and what follows a CONNECT that a proxy accepted is the client's own. A 101
   that the client did not ask for would let its next request, to whatever site, go to this one unread. */
Next relayTunnel(Connection &connection, Cycle &cycle) {
  const bool connected = cycle.isConnect && cycle.responseCode >= 200 && cycle.responseCode <= 299;
  if (cycle.framing.kind != BodyKind::switching && !connected) return Next::step;
  if (!connected && !cycle.asksToSwitch) {
    return strictError(connection, badGateway, "The server changes to a protocol that it was not asked for.");
  }
  if (connected) {
    dprintf(1, "Client IP:%s,CONTENT TYPE:UNKNOWN,HOST NAME:UNKNOWN,REQUESTED URL:%s\n", clientip, peerText(url));
    dprintf(1, "Client IP:%s,URL:%s,STATUS:TUNNELED,HTTPS REQUEST\n", clientip, peerText(url));
  }
  sendWholeHead(clientsock, respheader, clientTimeoutSeconds);
  tunnel(clientsock, proxysock, relayIdleSeconds);
  return endCall(connection, connected ? 0 : 1);
}

/* A refused CONNECT is answered as to any other request; its body is not the tunnel's. */
Next frameRefusedConnect(Connection &connection, Cycle &cycle) {
  if (!cycle.isConnect) return Next::step;
  cycle.framing = responseFraming(respheader.first, false);
  const StrictFault &fault = cycle.framing.fault;
  return fault.status == 0 ? Next::step : strictError(connection, fault.status, fault.text);
}

/* The type as browsers read it: in any case of letters, without parameters; two that differ are none. */
Next readStrictType(Connection &connection, Cycle &cycle) {
  std::string type;
  if (!readMediaType(respheader.first, type)) {
    return strictError(connection, badGateway, "The server gives its answer two types.");
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

/* A page that is known to be clean still travels framed: a raw relay would let the next request by unread. */
Next consultStrictCache(Connection &connection, Cycle &cycle) {
  if (cycle.isExempt || cycle.framing.kind == BodyKind::none || !mayConsultCache(cycle)) return Next::step;
  const int32_t verdict = if_url_scanned_check_ok(url, cycle.date.get());
  cycle.isExempt = cycle.isKnownClean = verdict == 0;
  if (verdict == 1) return blockKnown(connection, cycle, verdict, "INFECTED");
  if (verdict == 2) return blockKnown(connection, cycle, verdict, "Offensive content.");
  if (verdict != 0) {
    dprintf(7, "%s:%d :: NOT present in the database\n", "strictResponse.cpp", __LINE__);
    cycle.cacheEligible = true;
  }
  return Next::step;
}

Next checkStrictType(Connection &connection, Cycle &cycle) {
  traceMiss(cycle);
  const bool hasBody = cycle.framing.kind != BodyKind::none;
  return hasBody && !cycle.isKnownClean ? checkContentType(connection, cycle) : Next::step;
}

constexpr Step steps[] = {
    {"strict response head", readStrictResponse},
    {"tunnel", relayTunnel},
    {"refused CONNECT", frameRefusedConnect},
    {"date", readDateAndType},
    {"media type", readStrictType},
    {"skip rules", applySkipRules},
    {"whitelisted", exemptWhitelisted},
    {"verdict cache", consultStrictCache},
    {"content type", checkStrictType},
    {"strict delivery", deliverStrictly},
};

}  // namespace

std::span<const Step> strictResponseSteps() { return steps; }

}  // namespace netsift
