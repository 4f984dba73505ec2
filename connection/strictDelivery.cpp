#include "connection/strictDelivery.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cache/dbcache.h"
#include "connection/answer.h"
#include "connection/answerPage.h"
#include "connection/bodyPhase.h"
#include "connection/scanSpool.h"
#include "connection/upstream.h"
#include "connection/verdict.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/strictCoding.h"
#include "http/strictField.h"
#include "http/strictForward.h"
#include "http/strictWire.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/popupIndex.h"
#include "state/connection.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t pieceSize = sizeof httpbody;
constexpr size_t codedPiece = 16384;
constexpr size_t spoolBlock = 65536;
/* Text is judged in pieces as large as can be had within this time, so that a page that grows slowly is seen to grow.
 */
constexpr int gatherMilliseconds = 1000;
constexpr int headMilliseconds = 100; /* a body that is this slow is waited for by a client that has the head */

enum class Flow { on, finished, cut, unjudged, blocked, gone };
enum class Read { piece, end, timedOut, broken, unreadable };

struct Delivery {
  Connection &connection;
  Cycle &cycle;
  BodySource source;

  bool judges = false;  /* text that ratings and phrases are looked for in */
  bool gathers = false; /* in pieces as large as can be had */
  bool scans = false;
  bool inserts = false; /* the pop-up script, where an html tag is found */
  bool decodes = false;
  CodingDecoder decoder;
  std::array<char, codedPiece> coded;
  size_t codedStart = 0, codedEnd = 0;
  bool decoderHoldsOutput = false;

  size_t size = 0;  /* of what is in httpbody and judged as one */
  size_t fresh = 0; /* where in it the piece begins that the client has not had */
  bool first = true, inFirstWindow = true;
  bool timedOut = false;
  bool headSent = false, trusted = true; /* trusted: every check that is on has passed all of it */
  int popupIndex = -1;
  uint64_t spooled = 0, scanned = 0, delivered = 0, threshold = 0;
  char virusName[virusNameSize] = "";
};

int upstreamMilliseconds() { return PROXY_TIMEOUT <= 0 || PROXY_TIMEOUT > 86400 ? -1 : PROXY_TIMEOUT * 1000; }

bool sendToClient(const char *bytes, size_t length) {
  return length == 0 || sendHTTPBody(clientsock, bytes, static_cast<int>(length), patientSeconds) >= 0;
}

/* -- reading -- */

Read asRead(BodyRead read) {
  switch (read) {
    case BodyRead::piece:
      return Read::piece;
    case BodyRead::end:
      return Read::end;
    case BodyRead::timedOut:
      return Read::timedOut;
    default:
      return Read::broken;
  }
}

Read readDecoded(Delivery &delivery, char *out, size_t room, size_t &count, int waitMilliseconds) {
  for (;;) {
    if (delivery.codedStart < delivery.codedEnd || delivery.decoderHoldsOutput) {
      size_t used = 0;
      const std::string_view in(delivery.coded.data() + delivery.codedStart, delivery.codedEnd - delivery.codedStart);
      if (decodeCoding(delivery.decoder, in, used, out, room, count) == Parse::bad) return Read::unreadable;
      delivery.codedStart += used;
      delivery.decoderHoldsOutput = count == room;
      if (count > 0) return Read::piece;
    }
    size_t coded = 0;
    const BodyRead read =
        readBody(proxysock, delivery.source, delivery.coded.data(), codedPiece, coded, waitMilliseconds);
    delivery.codedStart = 0;
    delivery.codedEnd = coded;
    if (read == BodyRead::end && finishCoding(delivery.decoder) == Parse::bad) return Read::unreadable;
    if (read != BodyRead::piece) return asRead(read);
  }
}

Read readMore(Delivery &delivery, size_t &count, int waitMilliseconds) {
  char *out = httpbody + delivery.size;
  const size_t room = pieceSize - delivery.size;
  if (delivery.decodes) return readDecoded(delivery, out, room, count, waitMilliseconds);
  return asRead(readBody(proxysock, delivery.source, out, room, count, waitMilliseconds));
}

/* How long to wait for more of a piece that began at `begun`. */
int gatherLeft(Clock::time_point begun) {
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun).count();
  return static_cast<int>(std::clamp<int64_t>(gatherMilliseconds - passed, 0, gatherMilliseconds));
}

/* The next piece into httpbody. Text that comes slowly is put behind what httpbody has of it, and all of that judged
   again: how a page is cut by time must not decide what is found in it. `cut`: nothing more comes, though the body has
   not ended; what had arrived is judged and delivered first. */
Flow readPiece(Delivery &delivery) {
  const bool grows = delivery.gathers && delivery.size < pieceSize;
  delivery.fresh = delivery.size = grows ? delivery.size : 0;
  Clock::time_point begun;
  while (delivery.size < pieceSize) {
    const bool begins = delivery.size == delivery.fresh;
    size_t count = 0;
    const Read read = readMore(delivery, count, begins ? upstreamMilliseconds() : gatherLeft(begun));
    if (begins) begun = Clock::now();
    delivery.size += count;
    if (read == Read::end) return Flow::finished;
    if (read == Read::unreadable) return Flow::unjudged;
    if (read == Read::timedOut && !begins) return Flow::on;
    if (read != Read::piece) {
      delivery.timedOut = read == Read::timedOut;
      dprintf(2, "Error %d while recieving http body\n", delivery.timedOut ? 2 : 3);
      return Flow::cut;
    }
    if (!delivery.gathers) return Flow::on;
  }
  return Flow::on;
}

/* -- the client's head -- */

bool isKnownLength(const Delivery &delivery) {
  return delivery.source.kind == BodyKind::none || (delivery.source.kind == BodyKind::length && !delivery.decodes);
}

/* What described the bytes as the origin sent them. */
void removeDescriptions() {
  for (const char *field : {"ETag:", "Accept-Ranges:", "Content-MD5:", "Digest:", "Content-Digest:", "Repr-Digest:"}) {
    removeField(respheader, field);
  }
}

void prepareClientHead(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  const std::string_view statusLine = respheader.first->text; /* its version is this hop's (RFC 9110 section 7.7) */
  setLine(respheader.first, "HTTP/1.1" + std::string(statusLine.substr(8, statusLine.find('\r') - 8)));
  cleanResponseHead(respheader, ProxyPresent == 1);
  addVia(respheader, cycle.framing.line.minorVersion);
  if (delivery.decodes) removeField(respheader, "Content-Encoding:");
  if (delivery.decodes || delivery.popupIndex >= 0) removeDescriptions();
  if (!isKnownLength(delivery)) {
    removeContentLengthFields(respheader);
  } else if (delivery.popupIndex >= 0) {
    setContentLength(respheader, cycle.framing.length + static_cast<uint64_t>(std::max(popuplen, 0)));
    dprintf(5, "Content length modified\n");
  }
  const bool closes = !isKnownLength(delivery) || !cycle.target.keepAlive || cycle.bodyUnsent;
  setConnection(respheader, closes);
  if (closes) delivery.connection.stop = true;
}

bool sendClientHead(Delivery &delivery) {
  if (delivery.headSent) return true;
  prepareClientHead(delivery);
  delivery.headSent = responseBegun = true;
  if (sendWholeHead(clientsock, respheader, clientTimeoutSeconds)) return true;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return false;
}

/* Sends bytes of the body that stand at `delivered` of it, with the script where it belongs. */
bool deliver(Delivery &delivery, const char *bytes, size_t length) {
  if (!sendClientHead(delivery)) return false;
  const uint64_t start = delivery.delivered;
  const uint64_t index = static_cast<uint64_t>(delivery.popupIndex);
  delivery.delivered += length;
  const bool holdsIndex = delivery.popupIndex >= 0 && start < index && index <= delivery.delivered;
  if (!holdsIndex) return sendToClient(bytes, length);
  const size_t before = index - start;
  dprintf(1, "Client IP:%s,SIZE:%ld,URL:%s,STATUS:DELIVERED\n", clientip, static_cast<long>(length) + popuplen,
          peerText(url));
  return sendToClient(bytes, before) && sendToClient(popupblocker, static_cast<size_t>(std::max(popuplen, 0))) &&
         sendToClient(bytes + before, length - before);
}

/* -- verdicts -- */

Flow blockOffensive(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,offensive content\n", clientip, peerText(cycle.urlCopy.c_str()));
  if (cycle.cacheEligible && disableCache != 1 && cycle.date) {
    addto_urlcache_db(cycle.urlCopy.c_str(), cycle.date.get(), 2);
  }
  return Flow::blocked;
}

Flow judgePiece(Delivery &delivery) {
  if (memmem(httpbody, delivery.size, "window.open", 11) != nullptr) {
    delivery.cycle.cacheEligible = false;
    dprintf(7, "POPUP caught and blocked for site %s\n", peerText(url));
  }
  if (delivery.first && delivery.inserts) {
    delivery.popupIndex = delivery.size == 0 ? -1 : getPopUpIndex(httpbody, static_cast<int>(delivery.size));
  }
  if (!delivery.judges || delivery.size == delivery.fresh) return Flow::on;
  dprintf(7, "preprocessing body...\n");
  if (delivery.fresh > 0 && contentcheck != 0) prepareContentFilter();
  if (delivery.fresh == 0 && !delivery.first) delivery.inFirstWindow = false;
  if (checkAllRight(httpbody, static_cast<int32_t>(delivery.size), delivery.inFirstWindow ? 1 : 0) == 0) {
    return Flow::on;
  }
  return blockOffensive(delivery);
}

Flow blockInfected(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  snprintf(reason, sizeof reason, "Content is infected\n");
  storeLog("Virus", "Infected Content", 0);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,Infected Content:Virus-%s\n", clientip, peerText(url),
          peerText(delivery.virusName));
  if (cycle.cacheEligible && disableCache != 1 && cycle.date) addto_urlcache_db(url, cycle.date.get(), 1);
  blockConnection(clientsock, 1);
  return Flow::blocked;
}

/* Nobody could be asked: blocked, or passed as it is from here on. */
Flow handleUnscanned(Delivery &delivery, int32_t verdict) {
  const bool passes = (StrictHttp & STRICT_PASS_UNSCANNED) != 0;
  dprintf(2, "%s", verdict == -1 ? "--Anti Virus Server is not running\n" : "Error in scanning for virus\n");
  dprintf(1, "Client IP:%s,URL:%s,STATUS:%s,unscanned\n", clientip, peerText(url), passes ? "DELIVERED" : "BLOCKED");
  delivery.trusted = false;
  if (passes) {
    delivery.scans = false;
    return Flow::on;
  }
  snprintf(reason, sizeof reason, "%s",
           verdict == -1 ? "Anti Virus Server Not Running\n" : "Error In Scanning For Virus\n");
  blockConnection(clientsock, 1);
  return Flow::blocked;
}

/* Text that could not be read for judging. */
Flow handleUnjudged(Delivery &delivery) {
  delivery.trusted = delivery.judges = false;
  const bool passes = (StrictHttp & STRICT_PASS_UNJUDGED) != 0;
  dprintf(1, "Client IP:%s,URL:%s,STATUS:%s,unjudged\n", clientip, peerText(url), passes ? "DELIVERED" : "BLOCKED");
  if (passes) return Flow::on;
  snprintf(reason, sizeof reason, "The page came in a coding that cannot be read.");
  blockConnection(clientsock, 1);
  return Flow::blocked;
}

/* -- the scan file -- */

bool releaseSpool(Delivery &delivery) {
  const Text block(static_cast<char *>(malloc(spoolBlock)));
  while (block && delivery.delivered < delivery.spooled) {
    const size_t wanted = std::min<uint64_t>(spoolBlock, delivery.spooled - delivery.delivered);
    const size_t count = readFromSpool(delivery.delivered, block.get(), wanted);
    if (count == 0 || !deliver(delivery, block.get(), count)) return false;
  }
  return static_cast<bool>(block);
}

/* Judges all that was collected since the last scan and lets it go. */
Flow scanCollected(Delivery &delivery) {
  if (delivery.scanned < delivery.spooled) {
    const int32_t verdict = scanSpoolByAll(delivery.virusName);
    if (verdict == 1) return blockInfected(delivery);
    if (verdict != 0) {
      const Flow flow = handleUnscanned(delivery, verdict);
      if (flow != Flow::on) return flow;
    }
    delivery.scanned = delivery.spooled;
  }
  return releaseSpool(delivery) ? Flow::on : Flow::gone;
}

/* A piece that passed: into the scan file, or to the client. */
Flow passPiece(Delivery &delivery) {
  const char *piece = httpbody + delivery.fresh;
  const size_t length = delivery.size - delivery.fresh;
  if (length == 0) return Flow::on;
  if (!delivery.scans) return deliver(delivery, piece, length) ? Flow::on : Flow::gone;
  if (appendToSpool(piece, length)) {
    delivery.spooled += length;
    if (delivery.threshold == 0 || delivery.spooled < delivery.threshold) return Flow::on;
    while (delivery.threshold <= delivery.spooled) delivery.threshold *= 2;
    return scanCollected(delivery);
  }
  const Flow flow = handleUnscanned(delivery, -2);
  if (flow != Flow::on) return flow;
  const bool sent = releaseSpool(delivery) && deliver(delivery, piece, length);
  return sent ? Flow::on : Flow::gone;
}

/* -- the whole -- */

bool isType(const Cycle &cycle, const char *what) {
  return std::strstr(printable(cycle.contentType.get()), what) != nullptr;
}

bool isExactly(const Cycle &cycle, std::string_view type) { return printable(cycle.contentType.get()) == type; }

/* A body whose type is missing or says nothing may be shown as the page that it looks like. */
bool isText(const Cycle &cycle) {
  const char *type = printable(cycle.contentType.get());
  const bool unknown = std::strchr(type, '/') == nullptr || isExactly(cycle, "*/*") || isType(cycle, "unknown");
  return unknown || isType(cycle, "text") || isType(cycle, "xhtml");
}

void planChecks(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  const bool whole = cycle.responseCode == 200;
  delivery.inserts = whole && blockpopup != 0 && popuplen > 0 && isType(cycle, "html") && !cycle.isPopupSite;
  delivery.trusted = !cycle.isWhite && !cycle.skipScan;
  if (cycle.isExempt) return;
  const bool good = cycle.responseCode >= 200 && cycle.responseCode <= 299;
  delivery.judges = (contentcheck != 0 || testforratings != 0) && good && isText(cycle) && !cycle.isWhite;
  delivery.scans = virusscan != 0 && !cycle.skipScan;
  delivery.threshold = startScanSize > 0 ? static_cast<uint64_t>(startScanSize) * 1024 : 0;
}

/* A coded body is decoded for what is looked for in it, by the engines too, or put into it; a part of one (206) cannot
   be. */
Flow planCoding(Delivery &delivery) {
  if (!delivery.judges && !delivery.inserts && !delivery.scans) return Flow::on;
  delivery.decoder.coding = readContentCoding(respheader.first);
  delivery.decoder.unbounded = (StrictHttp & STRICT_PASS_UNJUDGED) != 0;
  if (delivery.decoder.coding == Coding::identity) return Flow::on;
  delivery.decodes = delivery.decoder.coding != Coding::unknown && delivery.cycle.responseCode != 206;
  if (delivery.decodes) return Flow::on;
  delivery.inserts = false;
  return delivery.judges || delivery.scans ? handleUnjudged(delivery) : Flow::on;
}

/* What is done with this response. */
Flow plan(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  responseBegun = false;
  cycle.urlCopy = url;
  startBody(delivery.source, cycle.framing);
  dprintf(1, "Client IP:%s,CONTENT TYPE:%s,HOST NAME:%s,REQUESTED URL:%s\n", clientip,
          peerText(cycle.contentType.get()), peerText(hostname), peerText(url));
  destroyHeader(&reqheader);
  if (delivery.source.kind == BodyKind::none) return Flow::on;
  planChecks(delivery);
  const Flow flow = planCoding(delivery);
  if (flow != Flow::on) return flow;
  if (delivery.judges && contentcheck != 0) prepareContentFilter();
  return delivery.scans && !prepareSpool() ? handleUnscanned(delivery, -2) : Flow::on;
}

/* A stream of events, and what nothing is looked for in, is passed as it comes; its head does not wait for its body. */
bool beginDelivery(Delivery &delivery) {
  const bool isEvents = isExactly(delivery.cycle, "text/event-stream");
  delivery.gathers = (delivery.judges || delivery.inserts) && !isEvents;
  if (delivery.gathers || delivery.scans || delivery.source.ended) return true;
  return arrivesWithin(proxysock, headMilliseconds) || sendClientHead(delivery);
}

Flow handlePieces(Delivery &delivery) {
  for (;;) {
    const Flow read = readPiece(delivery);
    if (read == Flow::unjudged && !delivery.decoder.unbounded) return handleUnjudged(delivery);
    if (delivery.decoder.exceeded && delivery.judges) handleUnjudged(delivery);
    if (delivery.first || delivery.size > delivery.fresh) {
      Flow flow = judgePiece(delivery);
      if (flow == Flow::on) flow = passPiece(delivery);
      if (flow != Flow::on) return flow;
      delivery.first = false;
    }
    if (read != Flow::on) return read == Flow::unjudged ? Flow::cut : read;
  }
}

/* What is still held back after the last piece, and the head of a body that had none. */
Flow finishDelivery(Delivery &delivery, Flow flow) {
  if (delivery.scans) {
    const Flow scanned = scanCollected(delivery);
    if (scanned != Flow::on) return scanned;
  }
  if (flow == Flow::finished && !sendClientHead(delivery)) return Flow::gone;
  if (flow == Flow::cut && !delivery.headSent) {
    snprintf(reason, sizeof reason, "The server broke off its answer.");
    sendErrorPage(clientsock, delivery.timedOut ? 504 : 502);
  }
  return flow;
}

void storeClean(const Delivery &delivery) {
  const Cycle &cycle = delivery.cycle;
  if (!cycle.cacheEligible || disableCache == 1 || !cycle.date || !delivery.trusted) return;
  dprintf(7, "%s:%d::Adding %s-%d-%s-%d in cache.\n", "strictDelivery.cpp", __LINE__, peerText(cycle.urlCopy.c_str()),
          static_cast<int>(cycle.urlCopy.size()), peerText(cycle.date.get()), 0);
  addto_urlcache_db(cycle.urlCopy.c_str(), cycle.date.get(), 0);
}

/* A site that overlooks a request's body takes it for requests of their own, and their answers would meet the next
   request. A proxy is trusted to know where a body ends. */
bool mayFollow(const Delivery &delivery) {
  const Cycle &cycle = delivery.cycle;
  if (cycle.bodyUnsent || (cycle.bodyLength > 0 && ProxyPresent != 1)) return false;
  return delivery.source.ended && !delivery.source.excess && cycle.framing.upstreamPersists;
}

Next conclude(Delivery &delivery, Flow flow) {
  Connection &connection = delivery.connection;
  Cycle &cycle = delivery.cycle;
  cycle.responseComplete = mayFollow(delivery);
  if (flow == Flow::finished) storeClean(delivery);
  const bool looksWhole = delivery.headSent && !isKnownLength(delivery); /* to a client that waits for the close */
  if (flow != Flow::finished && looksWhole) breakOff(clientsock, flow == Flow::gone ? 0 : clientTimeoutSeconds);
  replaceText(url, nullptr);
  replaceText(hostname, nullptr);
  destroyHeader(&respheader);
  responseBegun = false;
  connection.lastStatus = flow == Flow::finished ? 1 : -1;
  if (flow != Flow::finished) return endCall(connection, -1);
  dprintf(7, "here one request-response cycle completes\n");
  return Next::cycle;
}

}  // namespace

Next deliverStrictly(Connection &connection, Cycle &cycle) {
  Delivery delivery{connection, cycle};
  Flow flow = plan(delivery);
  if (flow == Flow::on) flow = beginDelivery(delivery) ? handlePieces(delivery) : Flow::gone;
  if (flow == Flow::finished || flow == Flow::cut) flow = finishDelivery(delivery, flow);
  if (delivery.decodes) endCoding(delivery.decoder);
  closeSpool();
  return conclude(delivery, flow);
}

}  // namespace netsift
