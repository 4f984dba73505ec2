#include <algorithm>
#include <string_view>

#include "connection/describeRequest.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/requestPolicy.h"
#include "connection/strict/connect.h"
#include "connection/strict/maxForwards.h"
#include "connection/strict/requestBody.h"
#include "connection/strict/steps.h"
#include "connection/strict/tunnel.h"
#include "connection/upstream.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/peerSocket.h"
#include "http/requestUrl.h"
#include "http/strictCoding.h"
#include "http/strictField.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int mostHops = 3; /* through filters of this name; a request that comes back loops */

/* The client's CONNECT is answered here: no proxy stands upstream that would do it. */
Next answerConnect(Connection &connection) {
  constexpr char established[] = "HTTP/1.1 200 Connection established\r\n\r\n";
  noteStatus(200);
  const int sent = sendHTTPBody(connection.ends.client, established, sizeof established - 1, clientTimeoutSeconds);
  return sent >= 0 ? Next::step : endCall(connection, callFailed);
}

/* The head as the upstream gets it, once per request: in this filter's own version, or in the client's where the answer
   is relayed to that as it comes. */
void rewriteHead(const Connection &connection, const Cycle &cycle, bool isRelayed) {
  const bool closes = isRelayed || (!cycle.target.keepAlive && KeepUpstreamSeconds <= 0);
  if (ProxyPresent == 1 && !connection.inTunnel) {
    rewriteForProxy(reqheader, cycle.target, closes);
  } else {
    rewriteForOrigin(reqheader, cycle.target, closes);
  }
  const std::string_view line = reqheader.first->text;
  reqheader.first->text[line.size() - 3] = isRelayed && cycle.target.minorVersion == 0 ? '0' : '1';
  addVia(reqheader, cycle.target.minorVersion);
}

/* RFC 9110 section 9.2.2: what may be sent once more, and so may go out on a connection that could be about to close.
 */
bool isRepeatable(const Cycle &cycle) {
  constexpr std::string_view methods[] = {"GET", "HEAD", "OPTIONS", "TRACE", "DELETE"};
  return !hasBody(cycle) && std::find(std::begin(methods), std::end(methods), cycle.target.method) != std::end(methods);
}

/* A login to the next hop that belongs to the connection it was made on, and is lost with it. */
bool isLoggedIn() {
  const std::string_view field = ProxyPresent == 1 ? "Proxy-Authorization:" : "Authorization:";
  for (const HeaderLine *line = reqheader.first; line != nullptr; line = line->next) {
    if (!isField(line, field)) continue;
    const std::string_view value = fieldValue(line, field);
    const std::string_view scheme = value.substr(0, value.find(' '));
    if (equalsIgnoringCase(scheme, "NTLM") || equalsIgnoringCase(scheme, "Negotiate")) return true;
  }
  return false;
}

Next refuseLocal(Connection &connection, const Cycle &cycle) {
  const std::string &host = cycle.request.hostname;
  return refuse(connection, cycle,
                {.reason = reasonFor(Why::localAddress),
                 .isRecorded = logip != 0,
                 .kind = "Local Address",
                 .what = host,
                 .line = std::string("Local Address:") + peerText(host.c_str()),
                 .result = callEnded,
                 .blocked = NETSIFT_BLOCK_LOCAL_ADDRESS});
}

/* A request that could not be sent again does not go out on a used connection, unless it is bound to that. */
Reuse reuseFor(const Cycle &cycle) {
  if (isRepeatable(cycle)) return Reuse::any;
  return isLoggedIn() ? Reuse::personal : Reuse::none;
}

Next connectFor(Connection &connection, Cycle &cycle, Reuse reuse) {
  const int status = openUpstream(connection, cycle, reuse);
  if (status == clientHasLeft) return leave(connection);
  if (status == targetIsLocal) return refuseLocal(connection, cycle);
  if (status != 0) return refuseWithError(connection, cycle, status, nullptr);
  return Next::step;
}

/* Filtering switched off beside an upstream proxy: nothing is read at all. */
Next passEverything(Connection &connection, Cycle &cycle) {
  if (ProxyPresent != 1 || DisableNetsiftService != 1) return Next::step;
  const Next next = connectFor(connection, cycle, Reuse::none);
  return next == Next::step ? relayUnfiltered(connection, true, tunnelIdleSeconds()) : next;
}

int orUsual(int32_t seconds) { return seconds > 0 ? seconds : clientTimeoutSeconds; }

/* The next head that comes, where none has come through a tunnel. */
Next awaitHead(Connection &connection, Cycle &cycle) {
  if (connection.inTunnel) {
    beginRecord();
    return Next::step;
  }
  destroyHeader(&reqheader);
  const int grace = connection.used ? 0 : newClientMilliseconds;
  const int idleSeconds = orUsual(ClientIdleSeconds);
  if (!awaitRequest(connection.ends.client, idleSeconds, IdleSemaphore, grace)) return endCall(connection, callFailed);
  connection.used = true;
  beginRecord();
  HeadScan scan;
  const HeadRead read = readBegunHead(connection.ends.client, scan, reqheader, orUsual(RequestHeadSeconds));
  if (read == HeadRead::refused) return refuseWithError(connection, cycle, scan.fault.status, scan.fault.text);
  if (read == HeadRead::done) return Next::step;
  dropRecord();
  return endCall(connection, callFailed);
}

/* Reads the head and refuses what RFC 9112 does not allow. */
Next readRequestHead(Connection &connection, Cycle &cycle) {
  destroyHeader(&respheader);
  request[0] = '\0';
  blockip = connection.configuredBlockip; /* an exemption holds for one request */
  connection.reverse = {};
  urlcheck = connection.configuredUrlcheck;
  const Next next = awaitHead(connection, cycle);
  if (next != Next::step) return next;
  RequestFraming framing;
  const StrictFault fault = requestFraming(reqheader.first, framing);
  if (fault.status != 0) return refuseWithError(connection, cycle, fault.status, fault.text);
  if (countHops(reqheader.first) > mostHops) {
    return refuseWithError(connection, cycle, 508, "The request goes round in a circle.");
  }
  cycle.bodyLength = framing.length;
  cycle.bodyIsChunked = framing.isChunked;
  cycle.expectsContinue = framing.expectsContinue;
  return Next::step;
}

/* Upgrade is ignored in HTTP/1.0 (RFC 9110 section 7.8). One protocol is offered on: whatever else the site changed to
   would be HTTP that nobody reads. */
bool asksToSwitch(const Cycle &cycle) {
  return cycle.target.minorVersion > 0 && cycle.target.method == "GET" && !hasBody(cycle) &&
         asksForWebSocket(reqheader.first);
}

Next identify(Connection &connection, Cycle &cycle) {
  traceRequestHead();
  noteRequestHead();
  StrictTarget &target = cycle.target;
  const StrictFault fault = parseStrictTarget(reqheader.first, target);
  if (fault.status != 0) return refuseWithError(connection, cycle, fault.status, fault.text);
  const bool isWeb = target.scheme == "http" || (target.scheme == "https" && ProxyPresent == 1);
  if (target.form == TargetForm::absolute && !isWeb) {
    return refuseWithError(connection, cycle, 501, "Addresses of this kind are not served.");
  }
  if (DoNotKeepConnectionAlive != 0 || connection.inTunnel) target.keepAlive = false;
  fillRequest(cycle.request, target);
  cycle.asksToSwitch = asksToSwitch(cycle);
  if (!publishRequest(cycle.request)) return endCall(connection, callFailed);
  traceHost(cycle.request);
  return Next::step;
}

/* Opens the relay of a request that passes untouched: a direct CONNECT is answered here, anything else is addressed to
   its origin with "Connection: close", since what followed it on the connection would go the same way whatever it
   names. */
Next openRelay(Connection &connection, Cycle &cycle) {
  Next next = connectFor(connection, cycle, Reuse::none); /* a relay has no second try */
  if (next != Next::step) return next;
  if (cycle.request.isConnect) return ProxyPresent == 1 ? Next::step : answerConnect(connection);
  cycle.target.keepAlive = false;
  rewriteHead(connection, cycle, true);
  return inviteBody(connection, cycle) ? Next::step : endCall(connection, callFailed);
}

/* A CONNECT that is served here goes no further. */
bool sendRelayHead(const Connection &connection, const Cycle &cycle) {
  if (ProxyPresent != 1 && cycle.request.isConnect) return true;
  return sendHeader(connection.ends.upstream, &reqheader) != 0;
}

Next passDirect(Connection &connection, Cycle &cycle) {
  if (DisableNetsiftService != 1) return Next::step;
  const Next next = openRelay(connection, cycle);
  if (next != Next::step) return next;
  return relayUnfiltered(connection, sendRelayHead(connection, cycle), tunnelIdleSeconds());
}

Next passMessenger(Connection &connection, Cycle &cycle) {
  if (!isMessenger(cycle.request)) return Next::step;
  const Next next = openRelay(connection, cycle);
  if (next != Next::step) return next;
  sendRelayHead(connection, cycle);
  return relayMessenger(connection);
}

/* Nothing is opened before policy has passed the request. */
Next connect(Connection &connection, Cycle &cycle) { return connectFor(connection, cycle, reuseFor(cycle)); }

Next serveConnect(Connection &connection, Cycle &cycle) {
  if (!cycle.request.isConnect || ProxyPresent == 1) return Next::step;
  const Next next = answerConnect(connection);
  return next == Next::step ? runTunnel(connection, cycle) : next;
}

/* A site is asked for codings that can be read here, but for a part of its bytes as they are; and for one part at most:
   several come in a type of their own, in which nothing is recognised (RFC 9110 section 14.2 lets a range be passed
   over). */
void limitWhatIsAskedFor() {
  size_t ranges = 0;
  for (const HeaderLine *line = reqheader.first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Range:")) continue;
    const std::string_view value = fieldValue(line, "Range:");
    ranges += 1 + static_cast<size_t>(std::count(value.begin(), value.end(), ','));
  }
  const std::string codings = ranges == 1 ? "identity" : codingsToAskFor(reqheader.first);
  removeField(reqheader, "Accept-Encoding:");
  insertField(reqheader, "Accept-Encoding: " + codings);
  if (ranges < 2) return;
  removeField(reqheader, "Range:");
  removeField(reqheader, "If-Range:");
}

/* Further with a body that was collected, or the answer to one that could not be. */
Next goOnWith(Connection &connection, const Cycle &cycle, Collected collected) {
  if (collected == Collected::all) return Next::step;
  if (collected == Collected::noChunks) return refuseWithError(connection, cycle, 400, noChunks);
  const bool tooLarge = collected == Collected::tooLarge;
  return refuseWithError(connection, cycle, tooLarge ? 413 : 500,
                         tooLarge ? "The request is too large to be collected or looked through for attachments."
                                  : "The request could not be read to its end.");
}

/* An upload that the check finds is refused before anything has gone upstream. */
Next checkUpload(Connection &connection, Cycle &cycle) {
  tracePassed(cycle.request);
  if (!hasBody(cycle) || !checksUploads(cycle.request)) return Next::step;
  const Collected collected = collectBody(connection, cycle, true);
  if (collected != Collected::upload) return goOnWith(connection, cycle, collected);
  dprintf(2, "Upload/Attachment is BLOCKED.\n");
  return refuse(connection, cycle,
                {.reason = reasonFor(Why::upload), .result = callEnded, .blocked = NETSIFT_BLOCK_UPLOAD});
}

/* Chunks are nothing for an upstream of HTTP/1.0: it is told the length. */
Next frameBody(Connection &connection, Cycle &cycle) {
  if (!cycle.bodyIsChunked || !connection.upstreams[connection.current].isHttp10) return Next::step;
  const Collected collected = cycle.requestSpool ? Collected::all : collectBody(connection, cycle, false);
  if (collected != Collected::all) return goOnWith(connection, cycle, collected);
  cycle.bodyIsChunked = false;
  setFraming(reqheader, false);
  setContentLength(reqheader, cycle.bodyLength);
  return Next::step;
}

/* A body that the client holds back is the upstream's to ask for, unless it was collected already or the upstream, of
   HTTP/1.0, cannot ask. False when the client is gone. */
bool passExpectation(const Connection &connection, Cycle &cycle) {
  const bool isCollected = cycle.requestSpool != nullptr;
  const bool cannotAsk = connection.upstreams[connection.current].isHttp10;
  if (cannotAsk && !isCollected && !inviteBody(connection, cycle)) return false;
  if (cannotAsk || isCollected) cycle.expectsContinue = false;
  if (cycle.expectsContinue) insertField(reqheader, "Expect: 100-continue");
  return true;
}

Next forwardHead(Connection &connection, Cycle &cycle) {
  limitWhatIsAskedFor();
  rewriteHead(connection, cycle, false);
  if (!passExpectation(connection, cycle)) return endCall(connection, callFailed);
  if (cycle.asksToSwitch) offerWebSocket(reqheader);
  if (sendWholeHead(connection.ends.upstream, reqheader, PROXY_TIMEOUT) || cycle.upstreamReused) return Next::step;
  return refuseWithError(connection, cycle, 502, "The server closed the connection.");
}

constexpr Step steps[] = {
    {"pass everything", passEverything},
    {"request head", readRequestHead},
    {"identify", identify},
    {"pass unfiltered", passDirect},
    {"messenger", passMessenger},
    {"address patterns", applyIpPatterns},
    {"port", checkPort},
    {"CONNECT port", checkConnectPort},
    {"address host", checkIpHost},
    {"lists", consultLists},
    {"ad server", checkAdServer},
    {"blacklists", checkBlackLists},
    {"max forwards", checkMaxForwards},
    {"connect", connect},
    {"CONNECT", serveConnect},
    {"upload", checkUpload},
    {"frame body", frameBody},
    {"forward head", forwardHead},
    {"forward body", forwardBody},
};

}  // namespace

std::span<const Step> strictRequestSteps() { return steps; }

void fillRequest(Request &read, const StrictTarget &target) {
  read.method = target.method;
  read.port = target.port;
  read.isConnect = target.form == TargetForm::authority;
  read.isHead = target.method == "HEAD";
  read.hostname = target.host;
  read.url = strictUrl(target);
  read.readings = urlReadings(target);
  read.hasQuery = read.url.find('?') != read.url.npos;
  const bool isBracketed = target.host.starts_with('['); /* an IPv6 address */
  read.isAddress = isBracketed || isAnIP(target.host.c_str()) == 1;
}

Next leave(Connection &connection) {
  dprintf(2, "The client left before the server answered.\n");
  retractRequest();
  return endCall(connection, callFailed);
}

bool sendAgain(Connection &connection, Cycle &cycle) {
  if (!cycle.upstreamReused || !isRepeatable(cycle) || !isClosedByPeer(connection.ends.upstream)) return false;
  closeUpstream(connection);
  if (openUpstream(connection, cycle, Reuse::none) != 0) return false;
  return sendWholeHead(connection.ends.upstream, reqheader, PROXY_TIMEOUT);
}

}  // namespace netsift
