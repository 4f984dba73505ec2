#include "connection/requestSide.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "connection/answer.h"
#include "connection/answerPage.h"
#include "connection/requestPolicy.h"
#include "connection/strictRequest.h"
#include "connection/upstream.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/attachFile.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr unsigned bodyChunk = 10240;
constexpr unsigned uncheckedUploadPort = 8100;

bool isDirect() { return ProxyPresent == 0; }

/* Filtering switched off beside an upstream proxy: nothing is read at all. */
Next passEverything(Connection &connection, Cycle &) {
  if (ProxyPresent != 1 || DisableNetsiftService != 1) return Next::step;
  tunnel(clientsock, proxysock, relayIdleSeconds);
  return endCall(connection, 1);
}

Next readRequestHead(Connection &connection, Cycle &cycle) {
  destroyHeader(&reqheader);
  destroyHeader(&respheader);
  if (isStrict()) return readStrictRequest(connection, cycle);
  if (getHeader(clientsock, &reqheader, clientTimeoutSeconds) != 0) return Next::step;
  destroyHeader(&reqheader);
  return endCall(connection, -1);
}

Next checkUpstream(Connection &connection, Cycle &) {
  if (!connection.upstreamUnavailable || ProxyPresent != 1) return Next::step;
  snprintf(reason, sizeof reason, "Proxy Server Not Running");
  sendErrorPage(clientsock, 502);
  return endCall(connection, -1);
}

void traceRequestHead() {
  dprintf(5, "-------------------start of reqheader------------------------------\n");
  traceHeadLines(reqheader);
  dprintf(5, "-------------------end of reqheader------------------------------\n");
}

/* "CONNECT host" without a port means 443, where getURL's own default is 80. */
bool connectsWithoutPort(const char *line) {
  std::string_view target = line;
  target.remove_prefix(std::min(target.find(' '), target.size()));
  target.remove_prefix(std::min(target.find_first_not_of(' '), target.size()));
  if (const size_t scheme = target.find("://"); scheme != target.npos) target.remove_prefix(scheme + 3);
  return target.substr(0, target.find_first_of(" /\r\n")).find(':') == target.npos;
}

Next identifyByContract(Connection &connection, Cycle &cycle) {
  char *host = nullptr;
  Text raw(getURL(reqheader.first, &cycle.port, &host));
  Text targetHost(host);
  if (!raw) return endCall(connection, -1);
  char *fieldHost = getHostName(reqheader.first);
  replaceText(hostname, fieldHost != nullptr ? fieldHost : targetHost.release());
  replaceText(url, decodeURL(raw.get()));
  if (url == nullptr || hostname == nullptr) return endCall(connection, -1);
  cycle.isConnect = isCONNECTRequest(reqheader.first) == 1;
  if (cycle.isConnect && connectsWithoutPort(reqheader.first->text)) cycle.port = 443;
  return Next::step;
}

Next identifyRequest(Connection &connection, Cycle &cycle) {
  traceRequestHead();
  const Next next = isStrict() ? identifyStrictly(connection, cycle) : identifyByContract(connection, cycle);
  if (next != Next::step) return next;
  cycle.hasQuery = std::strchr(url, '?') != nullptr;
  dprintf(1, "The hostname id is [ %s ]\n", peerText(hostname));
  return Next::step;
}

/* Under StrictHttp nothing is opened before policy has passed the request. */
Next connectDirect(Connection &connection, Cycle &cycle) {
  if (!isDirect() || isStrict()) return Next::step;
  return connectToOrigin(connection, cycle) ? Next::step : endCall(connection, -1);
}

/* As it stands; a CONNECT that is served here goes no further. */
int sendRequestHead(const Cycle &cycle) {
  if (isStrict() && isDirect() && cycle.isConnect) return 1;
  return sendHeader(proxysock, &reqheader);
}

Next passDirect(Connection &connection, Cycle &cycle) {
  if (DisableNetsiftService != 1) return Next::step;
  if (isStrict()) {
    const Next next = openStrictRelay(connection, cycle);
    if (next != Next::step) return next;
  }
  if (sendRequestHead(cycle) == 0) {
    dprintf(2, "Timeout while sending header to proxy\n");
    return endCall(connection, -1);
  }
  tunnel(clientsock, proxysock, relayIdleSeconds);
  return endCall(connection, 1);
}

bool isMessengerUrl(const char *text) {
  for (char(&fragment)[100] : tunnellist) {
    size_t length = strnlen(fragment, sizeof fragment - 1);
    while (length > 0 && fragment[length - 1] == ' ') length--;
    fragment[length] = '\0';
    if (length == 0) return false;
    if (std::strstr(text, fragment) != nullptr) return true;
  }
  return false;
}

Next passMessenger(Connection &connection, Cycle &cycle) {
  if (tunnelmessengers == 0 || !isMessengerUrl(url)) return Next::step;
  if (!cycle.resolvedUrl.empty() && !isMessengerUrl(cycle.resolvedUrl.c_str())) return Next::step;
  if (isStrict()) {
    const Next next = openStrictRelay(connection, cycle);
    if (next != Next::step) return next;
  }
  sendRequestHead(cycle);
  if (logtunnel != 0) {
    tunnellog(clientsock, proxysock, noTimeout);
  } else {
    tunnel(clientsock, proxysock, noTimeout);
  }
  return endCall(connection, 1);
}

Next connectForPolicy(Connection &connection, Cycle &cycle) {
  return isStrict() ? connectStrictly(connection, cycle) : Next::step;
}

Next forwardHead(Connection &connection, Cycle &cycle) {
  if (isStrict()) return forwardStrictly(connection, cycle);
  dprintf(4, "URL is [%s], port is [%u], host is [%s]\n", peerText(url), cycle.port, peerText(hostname));
  if (DoNotKeepConnectionAlive != 0) removePersistent(reqheader.first);
  removeAcceptCoding(reqheader.first);
  modHTTPver(reqheader.first);
  if (sendRequestHead(cycle) == 0) {
    dprintf(2, "Timeout while sending header to proxy.\n");
    return endCall(connection, -1);
  }
  cycle.isHead = isHEADRequest(reqheader.first) == 1;
  cycle.requestLength = getContentLength(reqheader.first);
  cycle.requestHasLength = cycle.requestLength != 0;
  return Next::step;
}

/* One chunk of the body on its way: checked where uploads are, then sent. */
Next forwardChunk(Connection &connection, const Cycle &cycle, char *chunk, unsigned length) {
  int cut = 0;
  if (blockupload != 0 && cycle.port != uncheckedUploadPort && checkUrl(url) == 0) {
    cut = blockAttachment(static_cast<int>(length), chunk);
  }
  const int kept = static_cast<int>(length) - cut;
  const bool nothingKept = kept == 0 && cut > 0; /* a send of nothing would count as a failure */
  if (!nothingKept && sendHTTPBody(proxysock, chunk, kept, PROXY_TIMEOUT) < 0) return endCall(connection, -1);
  if (cut <= 0) return Next::step;
  dprintf(2, "Upload/Attachment is BLOCKED.\n");
  blockConnection(clientsock, 1); /* the part before the cut has already gone upstream */
  return endCall(connection, 1);
}

Next forwardBody(Connection &connection, Cycle &cycle) {
  if (isStrict()) return Next::step;
  const HeaderLine *first = reqheader.first;
  const bool posts = isPOSTRequest(first) != 0 || isPROPPATCHRequest(first) != 0 || isPROPFINDRequest(first) != 0;
  if (!posts && !cycle.requestHasLength) return Next::step;
  dprintf(2, "It is a  request requiring posting of data\n");
  const Text buffer(static_cast<char *>(calloc(bodyChunk + 1, 1)));
  if (!buffer) {
    dprintf(1, "memory allocation failed for the request body\n");
    return endCall(connection, -1);
  }
  for (unsigned char status = 0; status == 0;) {
    unsigned length = bodyChunk;
    status = getHTTPBody(clientsock, buffer.get(), &length, clientTimeoutSeconds, cycle.requestLength);
    std::memset(buffer.get() + length, 0, bodyChunk + 1 - length); /* the check sees this chunk alone */
    const Next next = forwardChunk(connection, cycle, buffer.get(), length);
    if (next != Next::step) return next;
    if (status == 2 || status == 3) {
      dprintf(7, "child returns with -1 due some error in reading or client closed connection\n");
      return endCall(connection, -1);
    }
    if (cycle.requestHasLength) {
      cycle.requestLength = static_cast<int32_t>(static_cast<uint32_t>(cycle.requestLength) - length);
    }
  }
  return Next::step;
}

constexpr Step steps[] = {
    {"pass everything", passEverything},
    {"request head", readRequestHead},
    {"upstream proxy", checkUpstream},
    {"identify", identifyRequest},
    {"connect", connectDirect},
    {"pass unfiltered", passDirect},
    {"messenger", passMessenger},
    {"address patterns", applyIpPatterns},
    {"port", checkPort},
    {"address host", checkIpHost},
    {"lists", consultLists},
    {"ad server", checkAdServer},
    {"blacklists", checkBlackLists},
    {"connect passed", connectForPolicy},
    {"forward head", forwardHead},
    {"forward body", forwardBody},
};

}  // namespace

std::span<const Step> requestSteps() { return steps; }

}  // namespace netsift
