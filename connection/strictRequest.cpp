#include "connection/strictRequest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "connection/answer.h"
#include "connection/answerPage.h"
#include "connection/upstream.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/strictField.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictUpload.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/attachFile.h"
#include "scan/tunnel.h"
#include "state/connection.h"

namespace netsift {
namespace {

constexpr size_t forwardPiece = 65536;
constexpr size_t uploadWindow = 65536;
constexpr size_t uploadOverlap = 16384 + 32; /* of two windows: the longest field that is looked at, and its name */
constexpr uint64_t greatestChecked = 256ULL << 20; /* what is collected to be looked through */
constexpr int mostHops = 3;                        /* through filters of this name; a request that comes back loops */
constexpr unsigned uncheckedUploadPort = 8100;

struct FileCloser {
  void operator()(FILE *file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

/* The client's CONNECT is answered here: no proxy stands upstream that would do it. */
Next answerConnect(Connection &connection) {
  constexpr char established[] = "HTTP/1.1 200 Connection established\r\n\r\n";
  const bool sent = sendHTTPBody(clientsock, established, sizeof established - 1, clientTimeoutSeconds) >= 0;
  return sent ? Next::step : endCall(connection, -1);
}

/* The head as the upstream gets it, in HTTP/1.0 so that its answer comes in the simplest framing. Once per request. */
void rewriteHead(const Cycle &cycle) {
  if (ProxyPresent == 1) {
    rewriteForProxy(reqheader, cycle.target);
  } else {
    rewriteForOrigin(reqheader, cycle.target);
  }
  const std::string_view line = reqheader.first->text;
  if (line.ends_with("1.1\r\n")) reqheader.first->text[line.size() - 3] = '0';
  addVia(reqheader, cycle.target.minorVersion);
}

/* RFC 9110 section 9.2.2: what may be sent once more, and so may go out on a connection that could be about to close.
 */
bool isRepeatable(const Cycle &cycle) {
  constexpr std::string_view methods[] = {"GET", "HEAD", "OPTIONS", "TRACE", "DELETE"};
  return cycle.bodyLength == 0 &&
         std::find(std::begin(methods), std::end(methods), cycle.target.method) != std::end(methods);
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

/* Connects; a request that could not be sent again does not go out on a used connection, unless it is bound to that. */
int connectFor(Connection &connection, Cycle &cycle) {
  if (!isRepeatable(cycle) && connection.upstreamUsed && !isLoggedIn()) strictDisconnect(connection);
  return strictConnect(connection, cycle);
}

/* Reads the next piece of the request's body: as much as there is room for, or what has arrived. False when the client
   stalls or breaks off. */
bool readRequestBody(char *piece, size_t room, uint64_t &remaining, size_t &count, bool full) {
  unsigned length = static_cast<unsigned>(std::min<uint64_t>(room, remaining));
  const int least = full ? static_cast<int>(length) : 1;
  const unsigned char status = getHTTPBody(clientsock, piece, &length, clientTimeoutSeconds, least);
  count = length;
  remaining -= length;
  return status <= 1 && length > 0;
}

bool inviteBody(const Cycle &cycle) {
  constexpr char invitation[] = "HTTP/1.1 100 Continue\r\n\r\n";
  if (!cycle.expectsContinue) return true;
  return sendHTTPBody(clientsock, invitation, sizeof invitation - 1, clientTimeoutSeconds) >= 0;
}

enum class Upload { clean, found, failed };

/* Collects the body in a file without a name and looks for uploads in windows that overlap. */
Upload spoolUpload(const Cycle &cycle, FILE *spool) {
  const Text window(static_cast<char *>(calloc(uploadWindow + 1, 1)));
  if (!window || !inviteBody(cycle)) return Upload::failed;
  size_t held = 0;
  for (uint64_t remaining = cycle.bodyLength; remaining > 0;) {
    size_t count = 0;
    if (!readRequestBody(window.get() + held, uploadWindow - held, remaining, count, true)) return Upload::failed;
    if (fwrite(window.get() + held, 1, count, spool) != count) return Upload::failed;
    const size_t filled = held + count;
    held = std::min(filled, uploadOverlap);
    const Text tail(static_cast<char *>(malloc(held)));
    if (!tail) return Upload::failed;
    std::memcpy(tail.get(), window.get() + filled - held, held); /* the check empties what it finds */
    window.get()[filled] = '\0';
    if (namesUpload({window.get(), filled})) {
      snprintf(reason, sizeof reason, "Attachments are not allowed to this server");
      return Upload::found;
    }
    if (blockAttachment(static_cast<int>(filled), window.get()) > 0) return Upload::found;
    std::memcpy(window.get(), tail.get(), held);
  }
  rewind(spool);
  return ferror(spool) == 0 ? Upload::clean : Upload::failed;
}

/* An upstream may answer before it has all of the body. While the client goes on and the upstream takes it the body is
   sent to its end all the same; else the answer is read, and ends the connection. */
Next sendBody(Connection &connection, Cycle &cycle, FILE *spool) {
  if (cycle.bodyLength == 0) return Next::step;
  dprintf(2, "It is a  request requiring posting of data\n");
  const Text piece(static_cast<char *>(malloc(forwardPiece)));
  if (!piece || (spool == nullptr && !inviteBody(cycle))) return endCall(connection, -1);
  for (uint64_t remaining = cycle.bodyLength; remaining > 0;) {
    size_t count = 0;
    if (spool != nullptr) {
      count = fread(piece.get(), 1, std::min<uint64_t>(forwardPiece, remaining), spool);
      remaining -= count;
      if (count == 0) return endCall(connection, -1);
    } else if (answersFirst(proxysock, clientsock, clientTimeoutSeconds)) {
      cycle.bodyUnsent = true;
      break;
    } else if (!readRequestBody(piece.get(), forwardPiece, remaining, count, false)) {
      return endCall(connection, -1);
    }
    if (sendHTTPBody(proxysock, piece.get(), static_cast<int>(count), PROXY_TIMEOUT) >= 0) continue;
    cycle.bodyUnsent = true;
    break;
  }
  return Next::step;
}

bool checksUpload(const Cycle &cycle) {
  if (blockupload == 0 || cycle.bodyLength == 0 || cycle.port == uncheckedUploadPort) return false;
  return checkUrl(url) == 0 || (!cycle.resolvedUrl.empty() && checkUrl(cycle.resolvedUrl.c_str()) == 0);
}

/* A site is asked for bytes as they are, and for one part of them at most: several come in a type of their own, in
   which nothing is recognised (RFC 9110 section 14.2 lets a range be passed over). */
void limitWhatIsAskedFor() {
  removeField(reqheader, "Accept-Encoding:");
  insertField(reqheader, "Accept-Encoding: identity");
  size_t ranges = 0;
  for (const HeaderLine *line = reqheader.first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Range:")) continue;
    const std::string_view value = fieldValue(line, "Range:");
    ranges += 1 + static_cast<size_t>(std::count(value.begin(), value.end(), ','));
  }
  if (ranges < 2) return;
  removeField(reqheader, "Range:");
  removeField(reqheader, "If-Range:");
}

/* Upgrade is ignored in HTTP/1.0 (RFC 9110 section 7.8). */
bool asksToSwitch(const Cycle &cycle) {
  const HeaderLine *line = reqheader.first->next;
  while (line != nullptr && !isField(line, "Upgrade:")) line = line->next;
  return line != nullptr && cycle.target.minorVersion > 0;
}

}  // namespace

Next strictError(Connection &connection, int status, const char *text) {
  if (text != nullptr) snprintf(reason, sizeof reason, "%s", text);
  sendErrorPage(clientsock, status);
  return endCall(connection, -1);
}

Next readStrictRequest(Connection &connection, Cycle &cycle) {
  request[0] = '\0';
  blockip = connection.configuredBlockip; /* an exemption holds for one request */
  urlcheck = connection.configuredUrlcheck;
  HeadScan scan;
  const HeadRead read = readStrictHead(clientsock, scan, reqheader, clientTimeoutSeconds);
  if (read == HeadRead::refused) return strictError(connection, scan.fault.status, scan.fault.text);
  if (read != HeadRead::done) return endCall(connection, -1);
  RequestFraming framing;
  const StrictFault fault = requestFraming(reqheader.first, framing);
  if (fault.status != 0) return strictError(connection, fault.status, fault.text);
  if (countHops(reqheader.first) > mostHops) return strictError(connection, 508, "The request goes round in a circle.");
  cycle.bodyLength = framing.length;
  cycle.expectsContinue = framing.expectsContinue;
  return Next::step;
}

Next identifyStrictly(Connection &connection, Cycle &cycle) {
  const StrictFault fault = parseStrictTarget(reqheader.first, cycle.target);
  if (fault.status != 0) return strictError(connection, fault.status, fault.text);
  const bool isWeb = cycle.target.scheme == "http" || (cycle.target.scheme == "https" && ProxyPresent == 1);
  if (cycle.target.form == TargetForm::absolute && !isWeb) {
    return strictError(connection, 501, "Addresses of this kind are not served.");
  }
  snprintf(request, sizeof request, "%s", cycle.target.method.c_str());
  if (DoNotKeepConnectionAlive != 0) cycle.target.keepAlive = false;
  cycle.port = cycle.target.port;
  cycle.isConnect = cycle.target.form == TargetForm::authority;
  cycle.isHead = cycle.target.method == "HEAD";
  cycle.asksToSwitch = asksToSwitch(cycle);
  replaceText(hostname, strdup(cycle.target.host.c_str()));
  replaceText(url, strdup(strictUrl(cycle.target).c_str()));
  cycle.resolvedUrl = resolvedUrl(cycle.target);
  return url == nullptr || hostname == nullptr ? endCall(connection, -1) : Next::step;
}

Next openStrictRelay(Connection &connection, Cycle &cycle) {
  const int status = connectFor(connection, cycle);
  if (status != 0) return strictError(connection, status, nullptr);
  if (cycle.isConnect) return ProxyPresent == 1 ? Next::step : answerConnect(connection);
  cycle.target.keepAlive = false;
  rewriteHead(cycle);
  return inviteBody(cycle) ? Next::step : endCall(connection, -1);
}

Next connectStrictly(Connection &connection, Cycle &cycle) {
  const int status = connectFor(connection, cycle);
  if (status != 0) return strictError(connection, status, nullptr);
  if (!cycle.isConnect || ProxyPresent == 1) return Next::step;
  const Next next = answerConnect(connection);
  if (next != Next::step) return next;
  dprintf(1, "Client IP:%s,CONTENT TYPE:UNKNOWN,HOST NAME:UNKNOWN,REQUESTED URL:%s\n", clientip, peerText(url));
  dprintf(1, "Client IP:%s,URL:%s,STATUS:TUNNELED,HTTPS REQUEST\n", clientip, peerText(url));
  tunnel(clientsock, proxysock, relayIdleSeconds);
  return endCall(connection, 0);
}

Next forwardStrictly(Connection &connection, Cycle &cycle) {
  dprintf(4, "URL is [%s], port is [%u], host is [%s]\n", peerText(url), cycle.port, peerText(hostname));
  File spool;
  if (checksUpload(cycle)) {
    if (cycle.bodyLength > greatestChecked) {
      return strictError(connection, 413, "The request is too large to be looked through for attachments.");
    }
    spool.reset(tmpfile());
    const Upload upload = spool ? spoolUpload(cycle, spool.get()) : Upload::failed;
    if (upload == Upload::failed) return strictError(connection, 500, "The request could not be read to its end.");
    if (upload == Upload::found) {
      dprintf(2, "Upload/Attachment is BLOCKED.\n");
      blockConnection(clientsock, 1);
      return endCall(connection, 1);
    }
  }
  limitWhatIsAskedFor();
  rewriteHead(cycle);
  connection.upstreamUsed = true;
  if (!sendWholeHead(proxysock, reqheader, PROXY_TIMEOUT) && !cycle.upstreamReused) {
    return strictError(connection, 502, "The server closed the connection.");
  }
  return sendBody(connection, cycle, spool.get());
}

bool sendStrictlyAgain(Connection &connection, Cycle &cycle) {
  if (!cycle.upstreamReused || !isRepeatable(cycle) || !isClosedByPeer(proxysock)) return false;
  strictDisconnect(connection);
  return strictConnect(connection, cycle) == 0 && sendWholeHead(proxysock, reqheader, PROXY_TIMEOUT);
}

}  // namespace netsift
