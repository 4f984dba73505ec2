#include "connection/bodyPhase.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "cache/dbcache.h"
#include "connection/answer.h"
#include "connection/scanSpool.h"
#include "connection/verdict.h"
#include "content/phraseScan.h"
#include "content/phraseTable.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/socket.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/popupIndex.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr unsigned pieceSize = sizeof httpbody;
constexpr unsigned spoolBlock = 8192;
constexpr char source[] = "bodyPhase.cpp";

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
  bool popupSent = false;
  uint64_t delivered = 0; /* bytes of the scan file that the client has */
  int32_t callResult = -1;
  char virusName[virusNameSize] = "";
};

bool isScanning(const Body &body) { return virusscan != 0 && !body.cycle.skipScan; }

Flow fail(Body &body, Flow flow) {
  body.status = -1;
  return flow;
}

bool sendToClient(const char *bytes, size_t length) {
  return sendHTTPBody(clientsock, bytes, static_cast<int>(length), clientTimeoutSeconds) >= 0;
}

/* Sends the bytes with the script at `index` of them; an empty piece around the script is left out, since a send of
   nothing counts as a failure. */
bool sendWithScript(const char *bytes, size_t length, size_t index) {
  if (index > 0 && !sendToClient(bytes, index)) return false;
  if (popuplen > 0 && !sendToClient(popupblocker, static_cast<size_t>(popuplen))) return false;
  return index == length || sendToClient(bytes + index, length - index);
}

/* -- preparation -- */

void prepareLength(Body &body) {
  Cycle &cycle = body.cycle;
  cycle.hasLength = cycle.responseLength >= 1;
  body.remaining = cycle.hasLength ? cycle.responseLength : static_cast<int32_t>(pieceSize);
  if (cycle.hasLength || TunnelPacketsWithoutContentLength != 1 || DoNotKeepConnectionAlive != 0) return;
  tunnel(clientsock, proxysock, noTimeout); /* before the response's head has been sent */
}

void prepareScanFile(Body &body) {
  if (!prepareSpool()) body.cycle.skipScan = true;
}

void prepareBody(Body &body) {
  Cycle &cycle = body.cycle;
  const char *type = printable(cycle.contentType.get());
  dprintf(1, "Client IP:%s,CONTENT TYPE:%s,HOST NAME:%s,REQUESTED URL:%s\n", clientip, peerText(type),
          peerText(hostname), peerText(url));
  destroyHeader(&reqheader);
  cycle.addPopup = std::strstr(type, "html") != nullptr && blockpopup != 0 && !cycle.isPopupSite;
  prepareLength(body);
  prepareScanFile(body);
  if (contentcheck != 0) prepareContentFilter();
  cycle.urlCopy = url;
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
    const Text line(getSocketLine1(proxysock, &length, &status));
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
  body.readStatus = getHTTPBody(proxysock, httpbody, &body.size, PROXY_TIMEOUT, body.remaining);
  if (memmem(httpbody, body.size, "window.open", 11) != nullptr) {
    body.cycle.cacheEligible = false;
    dprintf(7, "POPUP caught and blocked for site %s\n", peerText(url));
  }
  body.connection.receivedTotal += body.size;
  const uint32_t rest = body.cycle.hasLength ? static_cast<uint32_t>(body.remaining) - body.size : body.size;
  body.remaining = static_cast<int32_t>(rest);
  if (body.readStatus != 2 && body.readStatus != 3) return Flow::on;
  dprintf(2, "Error %d while recieving http body\n", body.readStatus);
  return Flow::leave;
}

Flow finishChunk(Body &body) {
  if (!body.cycle.isChunked || body.chunkContinues) return Flow::on;
  if (body.lastChunk) {
    Header trailer{};
    const bool complete = getHeader(proxysock, &trailer, PROXY_TIMEOUT) != 0;
    destroyHeader(&trailer);
    if (complete) return Flow::leave;
    dprintf(2, "Error in getting chunk trailer\n");
    return fail(body, Flow::leave);
  }
  if (getCRLF(proxysock) >= 0) return Flow::on;
  dprintf(2, "Error in getting end of chunk\n");
  return fail(body, Flow::leave);
}

Flow judgeContent(Body &body) {
  Cycle &cycle = body.cycle;
  if (cycle.isWhite || body.size == 0 || std::strstr(printable(cycle.contentType.get()), "text") == nullptr) {
    return Flow::on;
  }
  dprintf(7, "preprocessing body...\n");
  if (checkAllRight(httpbody, static_cast<int32_t>(body.size), body.first ? 1 : 0) == 0) return Flow::on;
  const char *blocked = cycle.urlCopy.c_str();
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,offensive content\n", clientip, peerText(blocked));
  if (cycle.cacheEligible && disableCache != 1) {
    dprintf(7, "Adding %s-%d-%s-%d in cache.\n", peerText(blocked), static_cast<int>(cycle.urlCopy.size()),
            peerText(cycle.date.get()), 2);
    if (cycle.date) addto_urlcache_db(blocked, cycle.date.get(), 2);
  }
  return Flow::endCall;
}

/* The file's clean part beyond what the client has, before the next piece is read. */
Flow releaseScanned(Body &body) {
  char block[spoolBlock];
  for (size_t count; (count = readFromSpool(body.delivered, block, sizeof block)) > 0; body.delivered += count) {
    if (sendToClient(block, count)) continue;
    dprintf(7, "Client closed connection while receiving body of size %d\n", static_cast<int>(count));
    body.callResult = -9;
    return Flow::endCall;
  }
  dprintf(7, "---%ld bytes has been sent to the Client.\n", static_cast<long>(body.delivered));
  return Flow::on;
}

Flow blockUnscanned(Body &body, const char *trace, const char *why) {
  dprintf(2, "%s", trace);
  snprintf(reason, sizeof reason, "%s", why);
  blockConnection(clientsock, 1);
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
  switch (scanSpool(body.virusName)) {
    case 1:
      return Flow::infected;
    case -1:
      return blockUnscanned(body, "--Anti Virus Server is not running\n", "Anti Virus Server Not Running\n");
    case -2:
    case -3:
      return blockUnscanned(body, "Error in scanning for virus\n", "Error In Scanning For Virus\n");
    case 0:
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
  if (sendHeader(clientsock, &respheader) != 0) return Flow::on;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return fail(body, Flow::leave);
}

/* While a long scan is far off the client gets a byte a piece, so that it does not give up.
   When the file has none, it is a zero. */
Flow trickleByte(Body &body) {
  if (body.delivered < body.connection.scanThreshold) return Flow::on;
  char byte = 0;
  const size_t count = readFromSpool(body.delivered, &byte, 1);
  if (!sendToClient(&byte, 1)) dprintf(7, "Client closed connection while receiving body\n");
  body.delivered += count;
  if (body.popupIndex < 0 || body.delivered != static_cast<uint64_t>(body.popupIndex) || body.popupSent) {
    return Flow::on;
  }
  body.popupSent = true;
  return sendWithScript(nullptr, 0, 0) ? Flow::on : fail(body, Flow::leave);
}

Flow deliverPiece(Body &body) {
  if (isScanning(body)) return trickleByte(body);
  if (body.size == 0) return Flow::on;
  const bool inserts = body.first && body.cycle.addPopup && body.popupIndex != -1;
  const bool sent = inserts ? sendWithScript(httpbody, body.size, static_cast<size_t>(body.popupIndex))
                            : sendToClient(httpbody, body.size);
  if (!sent) {
    dprintf(7, "%d::Client closed connection while receiving body\n", __LINE__);
    return fail(body, Flow::leave);
  }
  if (inserts) {
    dprintf(1, "Client IP:%s,SIZE:%ld,URL:%s,STATUS:DELIVERED\n", clientip, static_cast<long>(body.size) + popuplen,
            peerText(url));
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

void blockInfected(Body &body) {
  Cycle &cycle = body.cycle;
  snprintf(reason, sizeof reason, "Content is infected\n");
  storeLog("Virus", "Infected Content", 0); /* whatever the log switches say */
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,Infected Content:Virus-%s\n", clientip, peerText(url),
          peerText(body.virusName));
  if (cycle.cacheEligible && disableCache != 1 && addto_urlcache_db(url, cycle.date.get(), 1) == 1) {
    body.connection.alreadyCached = true;
  } else {
    cycle.cacheEligible = false; /* a verdict that could not be stored must not become "clean" below */
  }
  blockConnection(clientsock, 1);
  body.status = -1;
  body.connection.stop = true;
}

bool sendSpoolBlock(Body &body, size_t count) {
  const uint64_t index = static_cast<uint64_t>(body.popupIndex);
  const bool spans =
      body.popupIndex >= 0 && !body.popupSent && body.delivered <= index && index <= body.delivered + count;
  if (!spans) return sendToClient(httpbody, count);
  body.popupSent = true;
  return sendWithScript(httpbody, count, static_cast<size_t>(index - body.delivered));
}

void deliverRest(Body &body) {
  if (!isScanning(body) || body.status != 1) return;
  for (size_t count; (count = readFromSpool(body.delivered, httpbody, sizeof httpbody)) > 0;) {
    if (!sendSpoolBlock(body, count)) {
      dprintf(7, "Client closed connection while receiving body\n");
      break;
    }
    body.delivered += count;
  }
  dprintf(7, "Response Body sent to client\n");
}

void storeClean(const Body &body) {
  const Cycle &cycle = body.cycle;
  if (!cycle.cacheEligible || disableCache == 1) {
    dprintf(7, "Caching Disabled. ifcache_eligible=%d\n", cycle.cacheEligible);
  } else if (body.connection.alreadyCached) {
    dprintf(7, "URL  have been  already cached. cacheFlag=%d\n", body.connection.alreadyCached);
  } else {
    dprintf(7, "%s:%d::Adding %s-%d-%s-%d in cache.\n", source, __LINE__, peerText(cycle.urlCopy.c_str()),
            static_cast<int>(cycle.urlCopy.size()), peerText(cycle.date.get()), 0);
    if (cycle.date) addto_urlcache_db(cycle.urlCopy.c_str(), cycle.date.get(), 0);
  }
}

void freeCycle() {
  replaceText(url, nullptr);
  replaceText(hostname, nullptr);
  destroyHeader(&respheader);
}

Next finishBody(Body &body, Flow flow) {
  Connection &connection = body.connection;
  connection.lastStatus = body.status;
  if (flow == Flow::endCycle) return Next::cycle;
  if (flow == Flow::endCall) {
    freeCycle();
    return endCall(connection, body.callResult);
  }
  if (flow == Flow::infected) blockInfected(body);
  connection.lastStatus = body.status;
  deliverRest(body);
  storeClean(body);
  freeCycle();
  dprintf(7, "here one request-response cycle completes\n");
  return Next::cycle;
}

}  // namespace

void prepareContentFilter() {
  if (categweight != nullptr) std::fill_n(categweight, std::min<size_t>(numcategories, phraseSlots()), 0);
  iniContentFilter();
}

Next runBodyPhase(Connection &connection, Cycle &cycle) {
  Body body{connection, cycle};
  prepareBody(body);
  Flow flow = Flow::nextPiece;
  while (flow == Flow::nextPiece && body.readStatus == 0) flow = handlePiece(body);
  const Next next = finishBody(body, flow);
  closeSpool();
  return next;
}

}  // namespace netsift
