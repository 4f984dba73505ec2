#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "connection/judge.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/strict/steps.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/strictCoding.h"
#include "http/strictField.h"
#include "http/strictForward.h"
#include "http/strictWire.h"
#include "http/wait.h"
#include "log/debugLog.h"
#include "log/resultLine.h"
#include "policy/popupIndex.h"
#include "scan/scanSpool.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t pieceSize = sizeof httpbody;
constexpr size_t codedPiece = 16384;
constexpr size_t spoolBlock = 65536;
/* Text is judged in pieces as large as can be had within this time, so that a page that grows slowly is seen to
   grow. */
constexpr int gatherMilliseconds = 1000;
constexpr int headMilliseconds = 100; /* a body that is this slow is waited for by a client that has the head */

enum class Flow { on, finished, cut, unjudged, blocked, gone };
enum class Read { piece, end, timedOut, broken, unreadable, clientLeft };

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
  bool trusted = true; /* every check that is on has passed all of it */
  int popupIndex = -1;
  int spool = -1; /* the scan file, once there is something in it */
  ClientWatch watch{connection.ends.client};
  uint64_t spooled = 0, scanned = 0, delivered = 0, threshold = 0;
  char virusName[virusNameSize] = "";
};

int upstreamMilliseconds() { return PROXY_TIMEOUT <= 0 || PROXY_TIMEOUT > 86400 ? -1 : PROXY_TIMEOUT * 1000; }

bool sendToClient(const Connection &connection, const char *bytes, size_t length) {
  return length == 0 || sendHTTPBody(connection.ends.client, bytes, static_cast<int>(length), patientSeconds) >= 0;
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
    case BodyRead::clientLeft:
      return Read::clientLeft;
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
    const Ends &ends = delivery.connection.ends;
    const BodyRead read = readBody(ends.upstream, delivery.source, delivery.coded.data(), codedPiece, coded,
                                   waitMilliseconds, ends.client);
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
  const Ends &ends = delivery.connection.ends;
  return asRead(readBody(ends.upstream, delivery.source, out, room, count, waitMilliseconds, ends.client));
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
    if (read == Read::clientLeft) return Flow::gone;
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
  Cycle &cycle = delivery.cycle;
  if (cycle.responseBegun) return true;
  prepareClientHead(delivery);
  cycle.responseBegun = true;
  if (sendWholeHead(delivery.connection.ends.client, respheader, clientTimeoutSeconds)) return true;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return false;
}

/* Releases bytes of the body that stand at `delivered` of it, with the script where it belongs. */
bool release(Delivery &delivery, const char *bytes, size_t length) {
  if (!sendClientHead(delivery)) return false;
  const Connection &connection = delivery.connection;
  const uint64_t start = delivery.delivered;
  const uint64_t index = static_cast<uint64_t>(delivery.popupIndex);
  delivery.delivered += length;
  const bool holdsIndex = delivery.popupIndex >= 0 && start < index && index <= delivery.delivered;
  if (!holdsIndex) return sendToClient(connection, bytes, length);
  logDelivered(delivery.cycle.request.url.c_str(), static_cast<long>(length) + popuplen);
  return sendWithScript(connection, sendToClient, bytes, length, index - start);
}

/* -- verdicts -- */

Flow judgePiece(Delivery &delivery) {
  noticePopups(delivery.cycle, httpbody, delivery.size);
  if (delivery.first && delivery.inserts) {
    delivery.popupIndex = delivery.size == 0 ? -1 : getPopUpIndex(httpbody, static_cast<int>(delivery.size));
  }
  if (!delivery.judges || delivery.size == delivery.fresh) return Flow::on;
  if (delivery.fresh > 0 && contentcheck != 0) prepareContentFilter();
  if (delivery.fresh == 0 && !delivery.first) delivery.inFirstWindow = false;
  const bool refused =
      refuseOffensive(delivery.connection, delivery.cycle, httpbody, delivery.size, delivery.inFirstWindow);
  return refused ? Flow::blocked : Flow::on;
}

/* What could not be examined: passed as it is from here on, when `passBit` of StrictHttp says so, or to be refused. */
bool passesUnexamined(Delivery &delivery, int32_t passBit, const char *what) {
  const bool passes = (StrictHttp & passBit) != 0;
  logOutcome(delivery.cycle.request.url.c_str(), passes ? "DELIVERED" : "BLOCKED", what);
  delivery.trusted = false;
  return passes;
}

/* Nobody could be asked. */
Flow handleUnscanned(Delivery &delivery, int32_t verdict) {
  traceUnscanned(verdict);
  if (!passesUnexamined(delivery, STRICT_PASS_UNSCANNED, "unscanned")) {
    refuseUnscanned(delivery.connection, delivery.cycle, verdict);
    return Flow::blocked;
  }
  delivery.scans = false;
  return Flow::on;
}

/* Text that could not be read for judging. */
Flow handleUnjudged(Delivery &delivery) {
  delivery.judges = false;
  if (passesUnexamined(delivery, STRICT_PASS_UNJUDGED, "unjudged")) return Flow::on;
  refuse(delivery.connection, delivery.cycle, {.reason = "The page came in a coding that cannot be read."});
  return Flow::blocked;
}

/* -- the scan file -- */

Flow releaseCollected(Delivery &delivery) {
  if (delivery.delivered == delivery.spooled) return Flow::on;
  const Text block(static_cast<char *>(std::malloc(spoolBlock)));
  uint64_t sent = delivery.delivered;
  const bool taken =
      block && releaseSpool(delivery.spool, sent, delivery.spooled, block.get(), spoolBlock,
                            [&](const char *bytes, size_t count) { return release(delivery, bytes, count); });
  if (taken && sent == delivery.spooled) return Flow::on;
  if (taken) dprintf(1, "error reading the virus scan file\n");
  return Flow::gone;
}

/* The engines' verdict on all that was collected, which they read by the file's name. */
int32_t askEngines(Delivery &delivery) {
  if (!isSpoolInPlace(delivery.spool, delivery.spooled)) return NETSIFT_SCAN_FAILED;
  return scanSpoolByAll(delivery.virusName);
}

/* Judges all that was collected since the last scan and lets it go. */
Flow scanCollected(Delivery &delivery) {
  if (delivery.scanned < delivery.spooled) {
    const int32_t verdict = askEngines(delivery);
    if (verdict == NETSIFT_SCAN_INFECTED) {
      refuseInfected(delivery.connection, delivery.cycle, delivery.virusName);
      return Flow::blocked;
    }
    if (hasLeft(delivery.watch)) return Flow::gone;
    const Flow flow = verdict == NETSIFT_SCAN_CLEAN ? Flow::on : handleUnscanned(delivery, verdict);
    if (flow != Flow::on) return flow;
    delivery.scanned = delivery.spooled;
  }
  return releaseCollected(delivery);
}

/* Into the scan file. A client that has left is noticed here, since nothing is sent to it meanwhile. */
Flow collectPiece(Delivery &delivery, const char *piece, size_t length) {
  if (hasLeft(delivery.watch)) return Flow::gone;
  if (delivery.spool < 0) delivery.spool = createSpool();
  if (delivery.spool >= 0 && writeSpool(delivery.spool, delivery.spooled, piece, length)) {
    delivery.spooled += length;
    if (delivery.threshold == 0 || delivery.spooled < delivery.threshold) return Flow::on;
    while (delivery.threshold <= delivery.spooled) delivery.threshold *= 2;
    return scanCollected(delivery);
  }
  Flow flow = handleUnscanned(delivery, NETSIFT_SCAN_FAILED);
  if (flow == Flow::on) flow = releaseCollected(delivery);
  if (flow != Flow::on) return flow;
  return release(delivery, piece, length) ? Flow::on : Flow::gone;
}

/* A piece that passed: into the scan file, or to the client. */
Flow passPiece(Delivery &delivery) {
  const char *piece = httpbody + delivery.fresh;
  const size_t length = delivery.size - delivery.fresh;
  if (length == 0) return Flow::on;
  if (delivery.scans) return collectPiece(delivery, piece, length);
  return release(delivery, piece, length) ? Flow::on : Flow::gone;
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
  startBody(delivery.source, cycle.framing);
  logRequested(cycle.contentType.get(), cycle.request.hostname.c_str(), cycle.request.url.c_str());
  destroyHeader(&reqheader);
  if (delivery.source.kind == BodyKind::none) return Flow::on;
  planChecks(delivery);
  const Flow flow = planCoding(delivery);
  if (flow != Flow::on) return flow;
  if (delivery.judges && contentcheck != 0) prepareContentFilter();
  if (!delivery.scans) return Flow::on;
  nameSpool();
  return clearSpool() ? Flow::on : handleUnscanned(delivery, NETSIFT_SCAN_FAILED);
}

/* A stream of events, and what nothing is looked for in, is passed as it comes; its head does not wait for its body. */
bool beginDelivery(Delivery &delivery) {
  const bool isEvents = isExactly(delivery.cycle, "text/event-stream");
  delivery.gathers = (delivery.judges || delivery.inserts) && !isEvents;
  if (delivery.gathers || delivery.scans || delivery.source.ended) return true;
  return arrivesWithin(delivery.connection.ends.upstream, headMilliseconds) || sendClientHead(delivery);
}

Flow handlePieces(Delivery &delivery) {
  for (;;) {
    const Flow read = readPiece(delivery);
    if (read == Flow::gone) return read;
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
  Cycle &cycle = delivery.cycle;
  if (delivery.scans) {
    const Flow scanned = scanCollected(delivery);
    if (scanned != Flow::on) return scanned;
  }
  if (flow == Flow::finished && !sendClientHead(delivery)) return Flow::gone;
  if (flow == Flow::cut && !cycle.responseBegun) {
    refuseWithError(delivery.connection, cycle, delivery.timedOut ? 504 : 502, "The server broke off its answer.");
  }
  return flow;
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
  const bool whole = flow == Flow::finished;
  cycle.responseComplete = mayFollow(delivery);
  if (whole && mayStore(cycle) && cycle.date && delivery.trusted) storeClean(cycle, "delivery.cpp", __LINE__);
  const bool looksWhole = cycle.responseBegun && !isKnownLength(delivery); /* to a client that waits for the close */
  if (flow == Flow::gone) dprintf(2, "The response did not reach its client.\n");
  if (!whole && looksWhole) breakOff(connection.ends.client, flow == Flow::gone ? 0 : clientTimeoutSeconds);
  retractRequest();
  destroyHeader(&respheader);
  connection.lastStatus = whole ? 1 : -1;
  if (!whole) return endCall(connection, callFailed);
  dprintf(7, "here one request-response cycle completes\n");
  return Next::cycle;
}

}  // namespace

Next deliver(Connection &connection, Cycle &cycle) {
  Delivery delivery{connection, cycle};
  Flow flow = plan(delivery);
  if (flow == Flow::on) flow = beginDelivery(delivery) ? handlePieces(delivery) : Flow::gone;
  if (flow == Flow::finished || flow == Flow::cut) flow = finishDelivery(delivery, flow);
  if (delivery.decodes) endCoding(delivery.decoder);
  closeSpool(delivery.spool);
  return conclude(delivery, flow);
}

}  // namespace netsift
