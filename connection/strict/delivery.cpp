#include "connection/strict/delivery.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "connection/judge.h"
#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/strict/steps.h"
#include "http/httpHeader.h"
#include "http/strictForward.h"
#include "http/strictRelay.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "policy/popupIndex.h"
#include "state/settings.h"
#include "state/strict.h"

namespace netsift {
namespace {

/* From the first piece on. */
void passDecoded(Delivery &delivery) {
  delivery.passesCoded = false;
  delivery.pending.clear();
  for (CodingDecoder &decoder : delivery.decoder.each) decoder.showsRest = false;
}

/* Where the script belongs. Coded bytes that give no text are not held until there is some: as they came they could not
   go out before a script. */
void findPlaceForScript(Delivery &delivery, bool isLast) {
  if (!delivery.first || !delivery.inserts) return;
  delivery.popupIndex = delivery.size == 0 ? -1 : getPopUpIndex(httpbody, static_cast<int>(delivery.size));
  if (delivery.popupIndex >= 0 || (delivery.size == 0 && !isLast)) passDecoded(delivery);
}

/* Whether there is something to judge: words also at the end, which finishes the last one. */
bool hasMoreToJudge(const Delivery &delivery, bool isLast) {
  if (!delivery.judges) return false;
  const bool isOpen = delivery.words && !delivery.first && (isLast || !delivery.held.empty());
  return delivery.size > delivery.fresh || isOpen;
}

/* Half a word may be one that condemns the page: it is held back with its piece until there is more of it, or the end.
 */
bool mayWait(const Delivery &delivery) {
  const size_t length = delivery.held.size() + delivery.size - delivery.fresh;
  return length <= mostHeld && delivery.pending.size() < mostHeld;
}

Flow judgePiece(Delivery &delivery, bool isLast) {
  delivery.waits = false;
  if (mayStore(delivery.cycle)) noticePopups(delivery.cycle, httpbody, delivery.size);
  findPlaceForScript(delivery, isLast);
  if (!hasMoreToJudge(delivery, isLast)) return Flow::on;
  if (delivery.fresh > 0 && contentcheck != 0 && !delivery.words) prepareContentFilter();
  if (delivery.fresh == 0 && !delivery.first) delivery.inFirstWindow = false;
  const bool first = delivery.inFirstWindow;
  const bool refused = delivery.words
                           ? refuseWords(delivery.connection, delivery.cycle, *delivery.words,
                                         {httpbody, delivery.size}, delivery.fresh, first, isLast, mayWait(delivery))
                           : refuseOffensive(delivery.connection, delivery.cycle, httpbody, delivery.size, first);
  delivery.waits = !refused && delivery.words && delivery.words->atEnd != 0;
  return refused ? Flow::blocked : Flow::on;
}

/* Text that could not be read for judging. */
Flow handleUnjudged(Delivery &delivery) {
  delivery.judges = false;
  if (passesUnexamined(delivery, STRICT_PASS_UNJUDGED, "unjudged")) return Flow::on;
  refuse(delivery.connection, delivery.cycle,
         {.reason = "The page came in a coding that cannot be read.", .blocked = NETSIFT_BLOCK_UNJUDGED});
  return Flow::blocked;
}

/* A piece that passed, behind what was held back: into the scan file, or to the client. */
Flow passPiece(Delivery &delivery) {
  std::string_view piece(httpbody + delivery.fresh, delivery.size - delivery.fresh);
  if (delivery.waits || !delivery.held.empty()) delivery.held.append(piece);
  if (delivery.waits) return Flow::on;
  const std::string held = std::exchange(delivery.held, {});
  if (!held.empty()) piece = held;
  if (piece.empty() && delivery.pending.empty()) return Flow::on;
  if (delivery.scans) return collectPiece(delivery, piece.data(), piece.size());
  return releasePiece(delivery, piece.data(), piece.size()) ? Flow::on : Flow::gone;
}

bool isType(const Cycle &cycle, const char *what) {
  return std::strstr(printable(cycle.contentType.get()), what) != nullptr;
}

bool isExactly(const Cycle &cycle, std::string_view type) { return printable(cycle.contentType.get()) == type; }

/* A body whose type is missing or says nothing may be shown as the page that it looks like. */
bool isText(const Cycle &cycle) {
  const char *type = printable(cycle.contentType.get());
  if (matchesWords()) return isJudgedType(type);
  const bool unknown = std::strchr(type, '/') == nullptr || isExactly(cycle, "*/*") || isType(cycle, "unknown");
  return unknown || isType(cycle, "text") || isType(cycle, "xhtml");
}

void planChecks(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  const bool whole = cycle.responseCode == 200;
  delivery.inserts = whole && blockpopup != 0 && popuplen > 0 && isType(cycle, "html") && !cycle.isPopupSite;
  delivery.trusted = !cycle.isWhite && !cycle.skipScan;
  if (cycle.isExempt) return;
  delivery.judges = (contentcheck != 0 || testforratings != 0) && isText(cycle) && !cycle.isWhite;
  delivery.scans = virusscan != 0 && !cycle.skipScan;
  delivery.threshold = startScanSize > 0 ? static_cast<uint64_t>(startScanSize) * 1024 : 0;
}

/* A coded body is decoded for what is looked for in it, by the engines too, or put into it; a part of one (206) cannot
   be. What a client would pass over behind the coded stream is looked at as it stands. */
Flow planCoding(Delivery &delivery) {
  if (!delivery.judges && !delivery.inserts && !delivery.scans) return Flow::on;
  const ContentCodings codings = readContentCodings(respheader.first);
  delivery.decoder.unbounded = (StrictHttp & STRICT_PASS_UNJUDGED) != 0;
  if (codings.known && codings.count == 0) return Flow::on;
  startCodings(delivery.decoder, codings, true);
  delivery.decodes = delivery.passesCoded = codings.known && delivery.cycle.responseCode != 206;
  if (delivery.decodes) return Flow::on;
  delivery.inserts = false;
  return delivery.judges || delivery.scans ? handleUnjudged(delivery) : Flow::on;
}

/* Makes the filter ready for the page's phrases. */
void prepareWeighing(Delivery &delivery) {
  if (!delivery.judges || contentcheck == 0) return;
  prepareContentFilter();
  if (!matchesWords()) return;
  delivery.words = std::make_unique<PageWords>();
  delivery.words->type = printable(delivery.cycle.contentType.get());
  delivery.words->charset = readCharset(respheader.first);
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
  prepareWeighing(delivery);
  if (!delivery.scans) return Flow::on;
  nameSpool();
  return clearSpool() ? Flow::on : handleUnscanned(delivery, NETSIFT_SCAN_FAILED);
}

/* A stream of events or pictures, and what nothing is looked for in, is passed as it comes. */
bool gathers(const Delivery &delivery) {
  const Cycle &cycle = delivery.cycle;
  const bool isStream = isExactly(cycle, "text/event-stream") || isExactly(cycle, "multipart/x-mixed-replace");
  return (delivery.judges || delivery.inserts) && !isStream;
}

/* Nothing is looked for in what is left of a coded body: it goes out as it comes. */
bool passUnread(Delivery &delivery) {
  const std::string bytes = std::exchange(delivery.pending, {});
  delivery.decodes = delivery.passesCoded = delivery.gathers = delivery.judges = false;
  delivery.size = 0;
  return bytes.empty() || release(delivery, bytes.data(), bytes.size());
}

/* Whether nobody looks at what is left, and it is enough to be worth a pipe. */
bool mayRelay(const Delivery &delivery) {
  constexpr uint64_t least = 256 * 1024;
  const bool isLookedAt = delivery.judges || delivery.inserts || delivery.scans || delivery.decodes;
  if (isLookedAt || mayStore(delivery.cycle) || !delivery.cycle.responseBegun) return false;
  return delivery.source.kind == BodyKind::length && delivery.source.remaining >= least;
}

/* `on` where it cannot be done. */
Flow relayRest(Delivery &delivery) {
  const Ends &ends = delivery.connection.ends;
  const BodyRead read = relayBody(ends.upstream, delivery.source, ends.client, upstreamMilliseconds(), patientSeconds,
                                  delivery.delivered);
  if (read == BodyRead::piece) return Flow::on;
  if (read == BodyRead::end) return Flow::finished;
  if (read == BodyRead::clientLeft) return Flow::gone;
  return cutOff(delivery, read == BodyRead::timedOut);
}

Flow handlePieces(Delivery &delivery) {
  for (;;) {
    const Flow read = readPiece(delivery);
    if (read == Flow::gone) return read;
    const bool mayPass = delivery.decoder.unbounded || (delivery.passesCoded && !delivery.judges && !delivery.scans);
    if (read == Flow::unjudged && !mayPass) return handleUnjudged(delivery);
    if (delivery.decoder.exceeded && delivery.judges) handleUnjudged(delivery);
    Flow flow = judgePiece(delivery, read != Flow::on);
    if (flow == Flow::on) flow = passPiece(delivery);
    if (flow != Flow::on) return flow;
    if (delivery.size > 0) delivery.first = false;
    const bool passes = delivery.passesCoded && delivery.decodes && !delivery.scans;
    if (read == Flow::unjudged && delivery.judges) handleUnjudged(delivery);
    if (passes && !delivery.judges && (read == Flow::on || read == Flow::unjudged)) {
      if (!passUnread(delivery)) return Flow::gone;
      continue;
    }
    if (read != Flow::on) return read == Flow::unjudged ? Flow::cut : read;
    if (!mayRelay(delivery)) continue;
    const Flow relayed = relayRest(delivery);
    if (relayed != Flow::on) return relayed;
  }
}

/* What is still held back after the last piece, and the head of a body that had none. */
Flow finishDelivery(Delivery &delivery, Flow flow) {
  Cycle &cycle = delivery.cycle;
  if (delivery.scans) {
    const Flow scanned = scanCollected(delivery);
    if (scanned != Flow::on) return scanned;
  }
  if (flow == Flow::finished && !(sendClientHead(delivery) && sendEnd(delivery))) return Flow::gone;
  if (flow == Flow::cut && !cycle.responseBegun) {
    refuseWithError(delivery.connection, cycle, delivery.timedOut ? 504 : 502, "The server broke off its answer.");
  }
  return flow;
}

/* A site that overlooks a request's body takes it for requests of their own, and their answers would meet the next
   request. A proxy is trusted to know where a body ends, unless that came in chunks and the proxy turns out to speak
   HTTP/1.0. */
bool mayFollow(const Delivery &delivery) {
  const Cycle &cycle = delivery.cycle;
  const bool knowsChunks = cycle.framing.line.minorVersion > 0;
  if (cycle.bodyWasSent && (ProxyPresent != 1 || (cycle.bodyIsChunked && !knowsChunks))) return false;
  if (cycle.bodyUnsent) return false;
  return delivery.source.ended && !delivery.source.excess && cycle.framing.upstreamPersists;
}

Next conclude(Delivery &delivery, Flow flow) {
  Connection &connection = delivery.connection;
  Cycle &cycle = delivery.cycle;
  const bool whole = flow == Flow::finished;
  cycle.responseComplete = mayFollow(delivery);
  if (whole && mayStore(cycle) && cycle.date && delivery.trusted) storeClean(cycle, "delivery.cpp", __LINE__);
  const bool looksWhole = cycle.responseBegun && endsWithConnection(delivery);
  if (whole) noteOutcome(NETSIFT_REQUEST_DELIVERED);
  if (flow == Flow::gone || (flow == Flow::cut && cycle.responseBegun)) noteOutcome(NETSIFT_REQUEST_ABORTED);
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

bool passesUnexamined(Delivery &delivery, int32_t passBit, const char *what) {
  const bool passes = (StrictHttp & passBit) != 0;
  logOutcome(delivery.cycle.request.url.c_str(), passes ? "DELIVERED" : "BLOCKED", what);
  delivery.trusted = false;
  if (passes) (passBit == STRICT_PASS_UNSCANNED ? record.unscanned : record.unjudged) = true;
  return passes;
}

Next deliver(Connection &connection, Cycle &cycle) {
  Delivery delivery{connection, cycle};
  Flow flow = plan(delivery);
  delivery.gathers = gathers(delivery);
  if (flow == Flow::on) flow = handlePieces(delivery);
  if (flow == Flow::finished || flow == Flow::cut) flow = finishDelivery(delivery, flow);
  closeSpool(delivery.spool);
  return conclude(delivery, flow);
}

}  // namespace netsift
