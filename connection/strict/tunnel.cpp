#include "connection/strict/tunnel.h"

#include <sys/socket.h>

#include <algorithm>
#include <string_view>

#include "connection/describeRequest.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/requestPolicy.h"
#include "connection/strict/steps.h"
#include "http/clientHello.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/strictForm.h"
#include "http/strictForward.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "scan/handOverRelay.h"
#include "state/connection.h"
#include "state/observer.h"
#include "state/settings.h"

namespace netsift {
namespace {

/* Why a tunnel ends before anything has gone through it, for the log. */
const char *whyEnded(HelloRead read) {
  switch (read) {
    case HelloRead::serverFirst:
      return "the server speaks first";
    case HelloRead::timedOut:
      return "no ClientHello in time";
    default:
      return "not TLS";
  }
}

/* The client has the answer to its CONNECT: it can only be told in the log, and in TLS's own way. */
Next endTunnel(Connection &connection, Cycle &cycle, const std::string &why) {
  return refuse(connection, cycle,
                {.isRecorded = logport != 0,
                 .kind = "Tunnel Blocked",
                 .what = why,
                 .line = "Tunnel Blocked:" + why,
                 .blocked = NETSIFT_BLOCK_TUNNEL});
}

/* RFC 8446 section 6.2: fatal, access_denied. Else programs try again, and people see a failure of the network. */
void denyAccess(int client) {
  constexpr char alert[] = "\x15\x03\x03\x00\x02\x02\x31";
  sendHTTPBody(client, alert, sizeof alert - 1, clientTimeoutSeconds);
}

/* The policy that a name is held against alone: it has neither a port nor a body. */
constexpr Step nameSteps[] = {
    {"address patterns", applyIpPatterns},
    {"address host", checkIpHost},
    {"lists", consultLists},
};
constexpr Step listSteps[] = {
    {"ad server", checkAdServer},
    {"blacklists", checkBlackLists},
};

Next runAll(std::span<const Step> steps, Connection &connection, Cycle &cycle) {
  for (const Step &step : steps) {
    const Next next = step.run(connection, cycle);
    if (netsift_observer != nullptr) netsift_observer->stepped(step.name, next == Next::step);
    if (next != Next::step) return next;
  }
  return Next::step;
}

/* Holds the name against all that the CONNECT's host has passed. What blocks counts of either, what exempts has to hold
   of both, so that the host is asked about again once it has lost its exemption; an address is no name, and the one
   that it is asked for under stands for it. */
Next judgeName(Connection &connection, Cycle &cycle, Cycle &named) {
  const uint8_t hostChecked = urlcheck;
  blockip = connection.configuredBlockip;
  urlcheck = connection.configuredUrlcheck;
  connection.reverse = {}; /* the host's, which was judged with it */
  const bool isHostNamed = !cycle.request.isAddress;
  Next next = runAll(nameSteps, connection, named);
  if (next != Next::step) return next;
  urlcheck |= hostChecked;
  if (isHostNamed) cycle.isWhite = named.isWhite = cycle.isWhite && named.isWhite;
  next = runAll(listSteps, connection, named);
  if (next != Next::step || !isHostNamed) return next;
  if (!publishRequest(cycle.request)) return endCall(connection, callFailed);
  return runAll(listSteps, connection, cycle);
}

Next checkName(Connection &connection, Cycle &cycle, const std::string &name) {
  Cycle named;
  StrictTarget target = cycle.target;
  if (!readHostName(name, target.host)) return endTunnel(connection, cycle, "malformed server name");
  if (target.host == cycle.request.hostname) return Next::step;
  dprintf(1, "Client IP:%s,URL:%s,SERVER NAME:%s\n", clientip, peerText(cycle.request.url.c_str()),
          peerText(target.host.c_str()));
  if (MatchServerName != 0 && !cycle.request.isAddress) return endTunnel(connection, cycle, "another server name");
  fillRequest(named.request, target);
  named.responseBegun = true;
  if (!publishRequest(named.request)) return endCall(connection, callFailed);
  const Next next = judgeName(connection, cycle, named);
  return next == Next::step && !publishRequest(cycle.request) ? endCall(connection, callFailed) : next;
}

Next checkHello(Connection &connection, Cycle &cycle, const ClientHello &hello) {
  if (!hello.serverName.empty()) return checkName(connection, cycle, hello.serverName);
  const bool mustMatch = MatchServerName != 0 && !cycle.request.isAddress;
  return mustMatch ? endTunnel(connection, cycle, "no server name") : Next::step;
}

bool beginsWithGet(int client) {
  constexpr std::string_view get = "GET ";
  char begin[get.size()];
  const ssize_t count = recv(client, begin, sizeof begin, MSG_PEEK | MSG_DONTWAIT);
  return count == static_cast<ssize_t>(get.size()) && std::string_view(begin, get.size()) == get;
}

/* Browsers open a WebSocket without TLS through a tunnel too (RFC 6455 section 4.1). Its handshake is a request, which
   the next cycle judges like any other and sends through the tunnel, and so is what the site answers. */
Next beginPlain(Connection &connection, Cycle &cycle, int seconds) {
  const std::string notTls = whyEnded(HelloRead::notTls);
  if (!beginsWithGet(connection.ends.client)) return endTunnel(connection, cycle, notTls);
  destroyHeader(&reqheader);
  HeadScan scan;
  StrictTarget target;
  const HeadRead read = readBegunHead(connection.ends.client, scan, reqheader, seconds);
  if (read != HeadRead::done || parseStrictTarget(reqheader.first, target).status != 0 ||
      !asksForWebSocket(reqheader.first) || target.host != cycle.target.host || target.port != cycle.target.port) {
    return endTunnel(connection, cycle, notTls);
  }
  connection.inTunnel = true;
  noteOutcome(NETSIFT_REQUEST_TUNNELED);
  connection.upstreams[connection.current].isPersonal = true; /* it leads to this site alone */
  cycle.responseComplete = true;
  return Next::cycle;
}

Next judgeStart(Connection &connection, Cycle &cycle) {
  ClientHello hello;
  const int seconds = ClientHelloSeconds > 0 ? ClientHelloSeconds : clientTimeoutSeconds;
  const HelloRead read = awaitClientHello(connection.ends.client, connection.ends.upstream, seconds, hello);
  if (read == HelloRead::clientLeft) return leave(connection);
  if (read == HelloRead::serverLeft) {
    dprintf(2, "The server closed the tunnel before the client said anything.\n");
    return endCall(connection, callFailed);
  }
  cycle.responseBegun = true;
  if (read == HelloRead::notTls) return beginPlain(connection, cycle, seconds);
  if (read != HelloRead::done) return endTunnel(connection, cycle, whyEnded(read));
  const Next next = checkHello(connection, cycle, hello);
  if (next != Next::step) denyAccess(connection.ends.client);
  return next;
}

}  // namespace

int tunnelIdleSeconds() { return TunnelIdleSeconds > 0 ? TunnelIdleSeconds : relayIdleSeconds; }

Next checkConnectPort(Connection &connection, Cycle &cycle) {
  const int32_t port = static_cast<int32_t>(cycle.request.port);
  const bool isOpen = connectports[0] == 0 ||
                      std::find(std::begin(connectports), std::end(connectports), port) != std::end(connectports);
  if (!cycle.request.isConnect || isOpen) return Next::step;
  return refusePort(connection, cycle, Why::connectPort);
}

Next runTunnel(Connection &connection, Cycle &cycle) {
  const Next next = TunnelTlsOnly != 0 ? judgeStart(connection, cycle) : Next::step;
  if (next != Next::step) return next;
  logTunneled(cycle.request.url.c_str());
  noteOutcome(NETSIFT_REQUEST_TUNNELED);
  describeRequest(cycle);
  handOverRelay(connection.ends.client, connection.ends.upstream, tunnelIdleSeconds(), cycle.request.url.c_str());
  return endCall(connection, callTunneled);
}

}  // namespace netsift
