#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "connection/judge.h"
#include "connection/strict/delivery.h"
#include "http/strictField.h"
#include "http/strictForward.h"
#include "log/debugLog.h"
#include "log/resultLine.h"
#include "state/settings.h"

namespace netsift {
namespace {

bool sendBytes(const Connection &connection, std::string_view bytes) {
  return sendWhole(connection.ends.client, bytes, patientSeconds);
}

bool sendToClient(const Connection &connection, const char *bytes, size_t length) {
  const std::string_view data(bytes, length);
  const bool isChunk = connection.sendsChunks && length > 0;
  return isChunk ? sendBytes(connection, asChunk(data)) : sendBytes(connection, data);
}

/* What described the bytes as the origin sent them. */
void removeDescriptions() {
  for (const char *field : {"ETag:", "Accept-Ranges:", "Content-MD5:", "Digest:", "Content-Digest:", "Repr-Digest:"}) {
    removeField(respheader, field);
  }
}

/* In identity form for this client: whoever stores it is told that others may get another. */
void removeCoding() {
  removeField(respheader, "Content-Encoding:");
  for (const HeaderLine *line = respheader.first->next; line != nullptr; line = line->next) {
    if (isField(line, "Vary:") && hasListToken(fieldValue(line, "Vary:"), "Accept-Encoding")) return;
  }
  insertField(respheader, "Vary: Accept-Encoding");
}

bool isDecoded(const Delivery &delivery) { return delivery.decodes && !delivery.passesCoded; }

void prepareClientHead(Delivery &delivery) {
  Cycle &cycle = delivery.cycle;
  const std::string_view statusLine = respheader.first->text; /* its version is this hop's (RFC 9110 section 7.7) */
  setLine(respheader.first, "HTTP/1.1" + std::string(statusLine.substr(8, statusLine.find('\r') - 8)));
  cleanResponseHead(respheader, ProxyPresent == 1);
  addVia(respheader, cycle.framing.line.minorVersion);
  if (isChanged(delivery)) removeDescriptions();
  if (isDecoded(delivery)) removeCoding();
  if (!isKnownLength(delivery)) {
    removeContentLengthFields(respheader);
  } else if (delivery.popupIndex >= 0) {
    setContentLength(respheader, cycle.framing.length + static_cast<uint64_t>(std::max(popuplen, 0)));
    dprintf(5, "Content length modified\n");
  }
  Connection &connection = delivery.connection;
  connection.sendsChunks = !isKnownLength(delivery) && cycle.target.minorVersion > 0;
  setFraming(respheader, connection.sendsChunks);
  const bool closes = endsWithConnection(delivery) || !cycle.target.keepAlive || cycle.bodyUnsent;
  setConnection(respheader, closes);
  if (closes) connection.stop = true;
}

}  // namespace

bool isKnownLength(const Delivery &delivery) {
  return delivery.source.kind == BodyKind::none || (delivery.source.kind == BodyKind::length && !isDecoded(delivery));
}

bool isChanged(const Delivery &delivery) { return isDecoded(delivery) || delivery.popupIndex >= 0; }

bool sendClientHead(Delivery &delivery, int flags) {
  Cycle &cycle = delivery.cycle;
  if (cycle.responseBegun) return true;
  prepareClientHead(delivery);
  cycle.responseBegun = true;
  if (sendWholeHead(delivery.connection.ends.client, respheader, clientTimeoutSeconds, flags)) return true;
  dprintf(7, "Client closed connection while receiving reponse header\n");
  return false;
}

bool endsWithConnection(const Delivery &delivery) {
  return !isKnownLength(delivery) && delivery.cycle.target.minorVersion == 0;
}

/* Trailers tell of the body as it came. */
bool sendEnd(const Delivery &delivery) {
  const Connection &connection = delivery.connection;
  if (!connection.sendsChunks) return true;
  return sendBytes(connection, endOfChunks(isChanged(delivery) ? "" : delivery.source.chunks.trailerText));
}

bool release(Delivery &delivery, const char *bytes, size_t length) {
  if (!sendClientHead(delivery, length > 0 ? MSG_MORE : 0))
    return false; /* one packet for both wakes the client once */
  const Connection &connection = delivery.connection;
  const uint64_t start = delivery.delivered;
  const uint64_t index = static_cast<uint64_t>(delivery.popupIndex);
  delivery.delivered += length;
  const bool holdsIndex = delivery.popupIndex >= 0 && start < index && index <= delivery.delivered;
  if (!holdsIndex) return sendToClient(connection, bytes, length);
  logDelivered(delivery.cycle.request.url.c_str(), static_cast<long>(length) + popuplen);
  return sendWithScript(connection, sendToClient, bytes, length, index - start);
}

bool releasePiece(Delivery &delivery, const char *piece, size_t length) {
  if (!delivery.passesCoded) return release(delivery, piece, length);
  const std::string bytes = takeSettled(delivery);
  return bytes.empty() || release(delivery, bytes.data(), bytes.size());
}

}  // namespace netsift
