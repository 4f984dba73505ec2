#include <cstdio>
#include <cstdlib>
#include <string>

#include "connection/judge.h"
#include "connection/strict/delivery.h"
#include "log/debugLog.h"
#include "state/results.h"
#include "state/settings.h"
#include "util/ownedText.h"

namespace netsift {
namespace {

constexpr size_t spoolBlock = 65536;

/* What may go to the client once the scan file is clean: that file, or the coded bytes beside it. */
Flow releaseCollected(Delivery &delivery) {
  const int from = delivery.codedSpool ? fileno(delivery.codedSpool.get()) : delivery.spool;
  const uint64_t end = delivery.passesCoded ? delivery.codedSpooled : delivery.spooled;
  if (delivery.delivered == end) return Flow::on;
  const Text block(static_cast<char *>(std::malloc(spoolBlock)));
  uint64_t sent = delivery.delivered;
  const bool taken =
      block && releaseSpool(from, sent, end, block.get(), spoolBlock,
                            [&](const char *bytes, size_t count) { return release(delivery, bytes, count); });
  if (taken && sent == end) return Flow::on;
  if (taken) dprintf(1, "error reading the virus scan file\n");
  return Flow::gone;
}

/* Coded bytes are mostly fewer than those of their text, but may go on and give none. */
constexpr uint64_t mostCoded = 4 << 20, mostCodedForEach = 4;

bool writeCoded(Delivery &delivery, const std::string &bytes) {
  if (delivery.codedSpooled + bytes.size() > mostCoded + mostCodedForEach * delivery.spooled) return false;
  if (!delivery.codedSpool) delivery.codedSpool.reset(std::tmpfile());
  return delivery.codedSpool &&
         writeSpool(fileno(delivery.codedSpool.get()), delivery.codedSpooled, bytes.data(), bytes.size());
}

/* Puts coded bytes beside the scan file once that holds all their text. */
bool collectSettled(Delivery &delivery) {
  const std::string bytes = takeSettled(delivery);
  if (bytes.empty()) return true;
  if (writeCoded(delivery, bytes)) {
    delivery.codedSpooled += bytes.size();
    return true;
  }
  delivery.pending.insert(0, bytes);
  delivery.settled = bytes.size();
  return false;
}

bool collect(Delivery &delivery, const char *piece, size_t length) {
  if (delivery.spool < 0 && length > 0) delivery.spool = createSpool();
  if (length > 0 && (delivery.spool < 0 || !writeSpool(delivery.spool, delivery.spooled, piece, length))) return false;
  delivery.spooled += length;
  return true;
}

/* The engines' verdict on all that was collected, which they read by the file's name. */
int32_t askEngines(Delivery &delivery) {
  if (!isSpoolInPlace(delivery.spool, delivery.spooled)) return NETSIFT_SCAN_FAILED;
  return scanSpoolByAll(delivery.virusName);
}

}  // namespace

Flow handleUnscanned(Delivery &delivery, int32_t verdict) {
  traceUnscanned(verdict);
  if (!passesUnexamined(delivery, STRICT_PASS_UNSCANNED, "unscanned")) {
    refuseUnscanned(delivery.connection, delivery.cycle, verdict);
    return Flow::blocked;
  }
  delivery.scans = false;
  return Flow::on;
}

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

Flow collectPiece(Delivery &delivery, const char *piece, size_t length) {
  if (hasLeft(delivery.watch)) return Flow::gone;
  if (!delivery.decoder.exceeded && collect(delivery, piece, length) && collectSettled(delivery)) {
    if (delivery.threshold == 0 || delivery.spooled < delivery.threshold) return Flow::on;
    while (delivery.threshold <= delivery.spooled) delivery.threshold *= 2;
    return scanCollected(delivery);
  }
  Flow flow = handleUnscanned(delivery, NETSIFT_SCAN_FAILED);
  if (flow == Flow::on) flow = releaseCollected(delivery);
  if (flow != Flow::on) return flow;
  return releasePiece(delivery, piece, length) ? Flow::on : Flow::gone;
}

}  // namespace netsift
