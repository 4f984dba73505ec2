#include <algorithm>
#include <cstring>

#include "connection/contract/steps.h"
#include "connection/judge.h"
#include "connection/publish.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/socket.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "policy/popupIndex.h"
#include "scan/scanSpool.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr unsigned pieceSize = sizeof httpbody;
constexpr unsigned spoolBlock = 8192;
constexpr char source[] = "body.cpp";

/* What one step of the loop says: go on with the piece, take the next piece, or leave the loop. */
enum class Flow { on, nextPiece, leave, infected, endCycle, endCall };

struct Body {
  Connection &connection;
  Cycle &cycle;
  int8_t status = 1; /* the cycle's status */
  unsigned char readStatus = 0;
  unsigned size = pieceSize; /* to read, then read */
  int32_t remaining = 0;     /* of the length, or what was read last when there is none */
  bool first = true;
  bool lastChunk = false, chunkContinues = false;
  int32_t chunkRest = 0;
  int popupIndex = -1;
  uint64_t delivered = 0; /* bytes of the scan file that the client has */
  int32_t callResult = callFailed;
  char virusName[virusNameSize] = "";
};

bool isScanning(const Body &body) { return virusscan != 0 && !body.cycle.skipScan; }

Flow fail(Body &body, Flow flow) {
  body.status = -1;
  return flow;
}

/* False for a send of nothing too: it counts as one that the client did not take. */
bool sendToClient(const Connection &connection, const char *bytes, size_t length) {
  return sendHTTPBody(connection.ends.client, bytes, static_cast<int>(length), clientTimeoutSeconds) >= 0;
}

void freeCycle() {
  retractRequest();
  destroyHeader(&respheader);
}

/* -- preparation -- */

void prepareLength(Body &body) {
  Cycle &cycle = body.cycle;
  cycle.hasLength = cycle.responseLength >= 1;
  body.remaining = cycle.hasLength ? cycle.responseLength : static_cast<int32_t>(pieceSize);
  if (cycle.hasLength || TunnelPacketsWithoutContentLength != 1 || DoNotKeepConnectionAlive != 0) return;
  const Ends &ends = body.connection.ends;
  tunnel(ends.client, ends.upstream, noTimeout); /* before the response's head has been sent */
}

void prepareBody(Body &body) {
  Cycle &cycle = body.cycle;
  const char *type = printable(cycle.contentType.get());
  logRequested(type, cycle.request.hostname.c_str(), cycle.request.url.c_str());
  destroyHeader(&reqheader);
  cycle.addPopup = std::strstr(type, "html") != nullptr && blockpopup != 0 && !cycle.isPopupSite;
  prepareLength(body);
  nameSpool();
  if (isScanning(body) && !clearSpool()) cycle.skipScan = true;
  if (contentcheck != 0) prepareContentFilter();
}

/* -- one piece -- */

Flow readFraming(Body &body) {
  if (!body.cycle.isChunked) {
    body.size = pieceSize;
    return Flow::on;
  }
  if (body.chunkContinues) {
    body.chunkRest = static_cast<int32_t>(static_cast<uint32_t>(body.chunkRest) - body.size);
  } else {
    unsigned length = 0;
    unsigned char status = 0;
    const Text line(getSocketLine1(body.connection.ends.upstream, &length, &status));
    if (status != 0 || !line) return fail(body, Flow::leave);
    body.chunkRest = getChunkSize(line.get());
    body.lastChunk = body.chunkRest == 0;
    body.chunkContinues = body.chunkRest >= static_cast<int32_t>(pieceSize);
  }
  body.size = static_cast<unsigned>(std::clamp(body.chunkRest, 0, static_cast<int32_t>(pieceSize)));
  if (body.size == 0) body.chunkContinues = false;
  return Flow::on;
}

Flow readPiece(Body &body) {
  body.readStatus = getHTTPBody(body.connection.ends.upstream, httpbody, &body.size, PROXY_TIMEOUT, body.remaining);
  Connection &connection = body.connection;
  connection.bufferUsed = std::max<size_t>(connection.bufferUsed, body.size);
  noticePopups(body.cycle, httpbody, connection.bufferUsed);
  connection.receivedTotal += body.size;
  const uint32_t rest = body.cycle.hasLength ? static_cast<uint32_t>(body.remaining) - body.size : body.size;
  body.remaining = static_cast<int32_t>(rest);
  if (body.readStatus != NETSIFT_READ_TIMED_OUT && body.readStatus != NETSIFT_READ_FAILED) return Flow::on;
  dprintf(2, "Error %d while recieving http body\n", body.readStatus);
  return Flow::leave;
}

Flow finishChunk(Body &body) {
  if (!body.cycle.isChunked || body.chunkContinues) return Flow::on;
  if (body.lastChunk) {
    Header trailer{};
    const bool complete = getHeader(body.connection.ends.upstream, &trailer, PROXY_TIMEOUT) != 0;
    destroyHeader(&trailer);
    if (complete) return Flow::leave;
    dprintf(2, "Error in getting chunk trailer\n");
    return fail(body, Flow::leave);
  }
  if (getCRLF(body.connection.ends.upstream) >= 0) return Flow::on;
  dprintf(2, "Error in getting end of chunk\n");
  return fail(body, Flow::leave);
}

Flow judgeContent(Body &body) {
  Cycle &cycle = body.cycle;
  if (cycle.isWhite || body.size == 0 || std::strstr(printable(cycle.contentType.get()), "text") == nullptr) {
    return Flow::on;
  }
  if (!refuseOffensive(body.connection, cycle, httpbody, body.size, body.first)) return Flow::on;
  freeCycle();
  return Flow::endCall;
}

/* The file's clean part beyond what the client has, before the next piece is read. */
Flow releaseScanned(Body &body) {
  char block[spoolBlock];
  const int file = openSpool();
  const bool taken =
      releaseSpool(file, body.delivered, spoolEnd, block, sizeof block, [&](const char *bytes, size_t count) {
        if (sendToClient(body.connection, bytes, count)) return true;
        dprintf(7, "Client closed connection while receiving body of size %d\n", static_cast<int>(count));
        return false;
      });
  closeSpool(file);
  if (!taken) {
    body.callResult = callLeft;
    noteOutcome(NETSIFT_REQUEST_ABORTED);
    return Flow::endCall;
  }
  dprintf(7, "---%ld bytes has been sent to the Client.\n", static_cast<long>(body.delivered));
  return Flow::on;
}

Flow blockUnscanned(Body &body, int32_t verdict) {
  traceUnscanned(verdict);
  refuseUnscanned(body.connection, body.cycle, verdict);
  return fail(body, Flow::endCycle);
}

Flow scanPiece(Body &body) {
  if (!isScanning(body)) return Flow::on;
  Connection &connection = body.connection;
  if (!appendToSpool(httpbody, body.size)) {
    body.cycle.skipScan = true;
    return fail(body, Flow::nextPiece);
  }
  const uint32_t total = connection.receivedTotal;
  const bool whole = total == static_cast<uint32_t>(body.cycle.contentLength);
  if (total < connection.scanThreshold && !whole) return Flow::on;
  connection.scanThreshold *= 2;
  const int32_t verdict = scanSpool(body.virusName);
  switch (verdict) {
    case NETSIFT_SCAN_INFECTED:
      return Flow::infected;
    case NETSIFT_SCAN_NOT_RUNNING:
    case NETSIFT_SCAN_FAILED:
    case NETSIFT_SCAN_GAVE_UP:
      return blockUnscanned(body, verdict);
    case NETSIFT_SCAN_CLEAN:
      return body.first ? Flow::on : releaseScanned(body);
    default:
      return Flow::on;
  }
}

Flow startDelivery(Body &body) {
  if (!body.first) return Flow::on;
  if (body.cycle.addPopup) body.popupIndex = getPopUpIndex(httpbody, static_cast<int>(body.size));
  if (body.cycle.hasLength && body.popupIndex != -1) {
    modContentLength(respheader.first, static_cast<long>(body.cycle.responseLength) + popuplen);
    dprintf(5, "Content length modified\n");
  }
  if (sendHeader(body.connection.ends.client, &respheader) != 0) return Flow::on;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return fail(body, Flow::leave);
}

/* While a long scan is far off the client gets a byte a piece, so that it does not give up.
   When the file has none, it is a zero. */
Flow trickleByte(Body &body) {
  if (body.delivered < body.connection.scanThreshold) return Flow::on;
  char byte = 0;
  const int file = openSpool();
  const size_t count = readSpool(file, body.delivered, &byte, 1);
  closeSpool(file);
  if (!sendToClient(body.connection, &byte, 1)) dprintf(7, "Client closed connection while receiving body\n");
  body.delivered += count;
  if (body.popupIndex < 0 || body.delivered != static_cast<uint64_t>(body.popupIndex)) return Flow::on;
  return sendScript(body.connection, sendToClient) ? Flow::on : fail(body, Flow::leave);
}

Flow deliverPiece(Body &body) {
  if (isScanning(body)) return trickleByte(body);
  if (body.size == 0) return Flow::on;
  const bool inserts = body.first && body.cycle.addPopup && body.popupIndex != -1;
  const Connection &connection = body.connection;
  const bool sent =
      inserts ? sendWithScript(connection, sendToClient, httpbody, body.size, static_cast<size_t>(body.popupIndex))
              : sendToClient(connection, httpbody, body.size);
  if (!sent) {
    dprintf(7, "%d::Client closed connection while receiving body\n", __LINE__);
    return fail(body, Flow::leave);
  }
  if (inserts) {
    logDelivered(body.cycle.request.url.c_str(), static_cast<long>(body.size) + popuplen);
  }
  return Flow::on;
}

using PieceStep = Flow (*)(Body &);
constexpr PieceStep pieceSteps[] = {readFraming, readPiece,     finishChunk, judgeContent,
                                    scanPiece,   startDelivery, deliverPiece};

Flow handlePiece(Body &body) {
  for (const PieceStep step : pieceSteps) {
    const Flow flow = step(body);
    if (flow != Flow::on) return flow;
  }
  body.first = false;
  return Flow::nextPiece;
}

/* -- the end -- */

bool sendSpoolBlock(Body &body, const char *block, size_t count) {
  const uint64_t index = static_cast<uint64_t>(body.popupIndex);
  body.connection.bufferUsed = std::max(body.connection.bufferUsed, count);
  const bool spans = body.popupIndex >= 0 && body.delivered < index && index <= body.delivered + count;
  if (!spans) return sendToClient(body.connection, block, count);
  return sendWithScript(body.connection, sendToClient, block, count, static_cast<size_t>(index - body.delivered));
}

void deliverRest(Body &body) {
  if (!isScanning(body) || body.status != 1) return;
  const int file = openSpool();
  const bool taken = releaseSpool(file, body.delivered, spoolEnd, httpbody, sizeof httpbody,
                                  [&](const char *block, size_t count) { return sendSpoolBlock(body, block, count); });
  closeSpool(file);
  if (!taken) dprintf(7, "Client closed connection while receiving body\n");
  dprintf(7, "Response Body sent to client\n");
}

void rememberClean(const Body &body) {
  const bool alreadyCached = body.connection.alreadyCached;
  if (!mayStore(body.cycle)) {
    dprintf(7, "Caching Disabled. ifcache_eligible=%d\n", body.cycle.cacheEligible);
  } else if (alreadyCached) {
    dprintf(7, "URL  have been  already cached. cacheFlag=%d\n", alreadyCached);
  } else {
    storeClean(body.cycle, source, __LINE__);
  }
}

/* The infected ending goes on to the end of the body: a verdict that could not be stored leaves the page to be stored
   as clean there. */
void endInfected(Body &body) {
  refuseInfected(body.connection, body.cycle, body.virusName);
  body.status = -1;
  body.connection.stop = true;
}

Next finishBody(Body &body, Flow flow) {
  Connection &connection = body.connection;
  connection.lastStatus = body.status;
  if (flow == Flow::endCycle) return Next::cycle;
  if (flow == Flow::endCall) return endCall(connection, body.callResult);
  if (flow == Flow::leave && body.status != 1) noteOutcome(NETSIFT_REQUEST_ABORTED);
  if (flow == Flow::infected) endInfected(body);
  connection.lastStatus = body.status;
  deliverRest(body);
  rememberClean(body);
  freeCycle();
  dprintf(7, "here one request-response cycle completes\n");
  return Next::cycle;
}

}  // namespace

Next relayBody(Connection &connection, Cycle &cycle) {
  Body body{connection, cycle};
  prepareBody(body);
  Flow flow = Flow::nextPiece;
  while (flow == Flow::nextPiece && body.readStatus == 0) flow = handlePiece(body);
  return finishBody(body, flow);
}

}  // namespace netsift
