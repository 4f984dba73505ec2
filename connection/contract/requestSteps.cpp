#include <algorithm>
#include <cstring>
#include <string_view>

#include "connection/contract/connect.h"
#include "connection/contract/steps.h"
#include "connection/describeRequest.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/requestPolicy.h"
#include "connection/upstream.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "policy/attachFile.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr unsigned uncheckedUploadPort = 8100;

constexpr unsigned bodyChunk = 10240;
constexpr unsigned httpPort = 80, httpsPort = 443;

/* Filtering switched off beside an upstream proxy: nothing is read at all. */
Next passEverything(Connection &connection, Cycle &) {
  if (ProxyPresent != 1 || DisableNetsiftService != 1) return Next::step;
  return relayUnfiltered(connection, true);
}

/* The client gets the page once it has asked for something. */
Next checkUpstream(Connection &connection, Cycle &cycle) {
  if (!connection.upstreamUnavailable || ProxyPresent != 1) return Next::step;
  return refuse(connection, cycle, {.reason = reasonFor(Why::proxyDown), .page = Page::error});
}

Next readRequestHead(Connection &connection, Cycle &) {
  destroyHeader(&reqheader);
  destroyHeader(&respheader);
  if (getHeader(connection.ends.client, &reqheader, clientTimeoutSeconds) != 0) {
    beginRecord();
    return Next::step;
  }
  destroyHeader(&reqheader);
  return endCall(connection, callFailed);
}

Next identify(Connection &connection, Cycle &cycle) {
  traceRequestHead();
  noteRequestHead();
  char *host = nullptr;
  const Text raw(getURL(reqheader.first, &cycle.request.port, &host));
  const Text targetHost(host);
  if (!raw) return endCall(connection, callFailed);
  const Text fieldHost(getHostName(reqheader.first));
  const Text decoded(decodeURL(raw.get()));
  const char *hostName = fieldHost ? fieldHost.get() : targetHost.get();
  if (!decoded || hostName == nullptr) return endCall(connection, callFailed);
  Request &read = cycle.request;
  read.url = decoded.get();
  read.hostname = hostName;
  read.method = request; /* where getURL puts it */
  read.hasQuery = std::strchr(decoded.get(), '?') != nullptr;
  read.isConnect = isCONNECTRequest(reqheader.first) == 1;
  read.isAddress = isAnIP(hostName) == 1;
  if (!publishRequest(read)) return endCall(connection, callFailed);
  traceHost(read);
  return Next::step;
}

bool namesPort(std::string_view authority) { return authority.find(':') != authority.npos; }

/* The request line's target up to its path, without a scheme. */
std::string_view targetAuthority() {
  std::string_view target = reqheader.first->text;
  target.remove_prefix(std::min(target.find(' '), target.size()));
  target.remove_prefix(std::min(target.find_first_not_of(' '), target.size()));
  if (const size_t scheme = target.find("://"); scheme != target.npos) target.remove_prefix(scheme + 3);
  return target.substr(0, target.find_first_of(" /\r\n"));
}

/* The port that a Host field names, folded as getURL folds one; 0 when it names none. */
unsigned hostFieldPort() {
  const Text field(getFieldValue(reqheader.first, "Host:"));
  const char *colon = field ? std::strchr(field.get(), ':') : nullptr;
  if (colon == nullptr) return 0;
  unsigned port = 0;
  for (const char *digit = colon + 1; *digit != '\0'; digit++) {
    port = port * 10 + static_cast<unsigned>(static_cast<int>(*digit) - '0');
  }
  return port;
}

/* A CONNECT that names no port at all is one to 443, where getURL's own default, which the port check sees, is 80. */
unsigned originPort(const Request &request) {
  if (!request.isConnect) return request.port != 0 ? request.port : httpPort;
  if (namesPort(targetAuthority())) return request.port != 0 ? request.port : httpsPort;
  const unsigned port = hostFieldPort();
  return port != 0 ? port : httpsPort;
}

/* The upstream sockets of earlier cycles stay open. */
Next connectDirect(Connection &connection, Cycle &cycle) {
  if (ProxyPresent != 0) return Next::step;
  if (!resolveHost(cycle.request.hostname)) return endCall(connection, callFailed);
  proxyport = static_cast<int32_t>(originPort(cycle.request));
  in_addr address;
  std::memcpy(&address, remote_host->h_addr_list[0], sizeof address);
  setUpstreamAddress(address, static_cast<unsigned>(proxyport));
  connectUpstream(connection);
  return Next::step;
}

Next passDirect(Connection &connection, Cycle &) {
  if (DisableNetsiftService != 1) return Next::step;
  return relayUnfiltered(connection, sendHeader(connection.ends.upstream, &reqheader) != 0);
}

Next passMessenger(Connection &connection, Cycle &cycle) {
  if (!isMessenger(cycle.request)) return Next::step;
  sendHeader(connection.ends.upstream, &reqheader);
  return relayMessenger(connection);
}

Next forwardHead(Connection &connection, Cycle &cycle) {
  tracePassed(cycle.request);
  if (DoNotKeepConnectionAlive != 0) removePersistent(reqheader.first);
  removeAcceptCoding(reqheader.first);
  modHTTPver(reqheader.first);
  if (sendHeader(connection.ends.upstream, &reqheader) == 0) {
    dprintf(2, "Timeout while sending header to proxy.\n");
    return endCall(connection, callFailed);
  }
  cycle.request.isHead = isHEADRequest(reqheader.first) == 1;
  cycle.requestLength = getContentLength(reqheader.first);
  cycle.requestHasLength = cycle.requestLength != 0;
  return Next::step;
}

/* One chunk of the body on its way: checked where uploads are, then sent. */
Next forwardChunk(Connection &connection, const Cycle &cycle, char *chunk, unsigned length) {
  int cut = 0;
  if (cycle.request.port != uncheckedUploadPort && checksUploads(cycle.request)) {
    cut = blockAttachment(static_cast<int>(length), chunk);
  }
  /* A send of nothing fails, be it that nothing was read or that all was cut. */
  const int kept = static_cast<int>(length) - cut;
  if (sendHTTPBody(connection.ends.upstream, chunk, kept, PROXY_TIMEOUT) < 0) return endCall(connection, callFailed);
  if (cut <= 0) return Next::step;
  dprintf(2, "Upload/Attachment is BLOCKED.\n");
  return answer(
      connection, cycle,
      {.result = callEnded, .blocked = NETSIFT_BLOCK_UPLOAD}); /* the part before the cut has already gone upstream */
}

Next forwardBody(Connection &connection, Cycle &cycle) {
  const HeaderLine *first = reqheader.first;
  const bool posts = isPOSTRequest(first) != 0 || isPROPPATCHRequest(first) != 0 || isPROPFINDRequest(first) != 0;
  if (!posts && !cycle.requestHasLength) return Next::step;
  dprintf(2, "It is a  request requiring posting of data\n");
  const Text buffer(static_cast<char *>(calloc(bodyChunk + 1, 1)));
  if (!buffer) {
    dprintf(1, "memory allocation failed for the request body\n");
    return endCall(connection, callFailed);
  }
  for (unsigned char status = 0; status == NETSIFT_READ_FILLED;) {
    unsigned length = bodyChunk;
    status = getHTTPBody(connection.ends.client, buffer.get(), &length, clientTimeoutSeconds, cycle.requestLength);
    std::memset(buffer.get() + length, 0, bodyChunk + 1 - length); /* the check sees this chunk alone */
    const Next next = forwardChunk(connection, cycle, buffer.get(), length);
    if (next != Next::step) return next;
    if (status == NETSIFT_READ_TIMED_OUT || status == NETSIFT_READ_FAILED) {
      dprintf(7, "child returns with -1 due some error in reading or client closed connection\n");
      return endCall(connection, callFailed);
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
    {"identify", identify},
    {"connect", connectDirect},
    {"pass unfiltered", passDirect},
    {"messenger", passMessenger},
    {"address patterns", applyIpPatterns},
    {"port", checkPort},
    {"address host", checkIpHost},
    {"lists", consultLists},
    {"ad server", checkAdServer},
    {"blacklists", checkBlackLists},
    {"forward head", forwardHead},
    {"forward body", forwardBody},
};

}  // namespace

std::span<const Step> contractRequestSteps() { return steps; }

}  // namespace netsift
