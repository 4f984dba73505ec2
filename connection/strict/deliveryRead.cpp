#include <algorithm>
#include <chrono>
#include <string_view>

#include "connection/strict/delivery.h"
#include "log/debugLog.h"
#include "state/settings.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;

/* Text is judged in pieces as large as can be had within this time, so that a page that grows slowly is seen to
   grow. */
constexpr int gatherMilliseconds = 1000;
constexpr int headMilliseconds = 100; /* a body that is this slow is waited for by a client that has the head */

enum class Read { piece, end, timedOut, broken, unreadable, clientLeft };

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
      if (decodeCodings(delivery.decoder, in, used, out, room, count) == Parse::bad) return Read::unreadable;
      delivery.codedStart += used;
      delivery.decoderHoldsOutput = count == room;
      if (count > 0) return Read::piece;
    }
    if (delivery.pending.size() >= mostHeld) return Read::piece;
    size_t coded = 0;
    const Ends &ends = delivery.connection.ends;
    const BodyRead read = readBody(ends.upstream, delivery.source, delivery.coded.data(), codedPiece, coded,
                                   waitMilliseconds, ends.client);
    delivery.codedStart = 0;
    delivery.codedEnd = coded;
    delivery.settled = delivery.pending.size();
    if (delivery.passesCoded) delivery.pending.append(delivery.coded.data(), coded);
    if (read == BodyRead::end && finishCodings(delivery.decoder) == Parse::bad) return Read::unreadable;
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

/* The same within that time after `begun`, however little of its framing and coding comes meanwhile. */
Read readWithin(Delivery &delivery, size_t &count, int milliseconds, Clock::time_point begun) {
  delivery.source.deadline = begun + std::chrono::milliseconds(milliseconds);
  const Read read = readMore(delivery, count, milliseconds);
  delivery.source.deadline = {};
  return read;
}

/* The first bytes of a piece. The head of what is passed as it comes does not wait for a slow body. */
Read readFirst(Delivery &delivery, size_t &count) {
  const bool headWaits = delivery.gathers || delivery.scans || delivery.cycle.responseBegun;
  if (!headWaits) {
    const Read read = readWithin(delivery, count, headMilliseconds, Clock::now());
    if (read != Read::timedOut) return read;
    if (!sendClientHead(delivery)) return Read::clientLeft;
  }
  return readMore(delivery, count, upstreamMilliseconds());
}

}  // namespace

int upstreamMilliseconds() { return PROXY_TIMEOUT <= 0 || PROXY_TIMEOUT > 86400 ? -1 : PROXY_TIMEOUT * 1000; }

Flow cutOff(Delivery &delivery, bool timedOut) {
  delivery.timedOut = timedOut;
  dprintf(2, "Error %d while recieving http body\n", timedOut ? 2 : 3);
  return Flow::cut;
}

std::string takeSettled(Delivery &delivery) {
  const bool isDrained = delivery.codedStart == delivery.codedEnd && !delivery.decoderHoldsOutput;
  const size_t count = isDrained ? delivery.pending.size() : delivery.settled;
  std::string settled = delivery.pending.substr(0, count);
  delivery.pending.erase(0, count);
  delivery.settled = 0;
  return settled;
}

Flow readPiece(Delivery &delivery) {
  const bool grows = delivery.gathers && delivery.size < pieceSize;
  delivery.fresh = delivery.size = grows ? delivery.size : 0;
  Clock::time_point begun;
  while (delivery.size < pieceSize) {
    const bool begins = delivery.size == delivery.fresh;
    size_t count = 0;
    const Read read = begins ? readFirst(delivery, count) : readWithin(delivery, count, gatherMilliseconds, begun);
    if (begins) begun = Clock::now();
    delivery.size += count;
    if (read == Read::end) return Flow::finished;
    if (read == Read::unreadable) return Flow::unjudged;
    if (read == Read::clientLeft) return Flow::gone;
    if (read == Read::timedOut && !begins) return Flow::on;
    if (read != Read::piece) return cutOff(delivery, read == Read::timedOut);
    if (!delivery.gathers || delivery.pending.size() >= mostHeld) return Flow::on;
  }
  return Flow::on;
}

}  // namespace netsift
