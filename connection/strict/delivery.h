/* A response on its way from the upstream to the client: what its parts in delivery*.cpp share. Internal to
   connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_DELIVERY_H
#define NETSIFT_CONNECTION_STRICT_DELIVERY_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "connection/cycle.h"
#include "http/strictCoding.h"
#include "http/strictWire.h"
#include "http/wait.h"
#include "scan/scanSpool.h"
#include "state/connection.h"

namespace netsift {

constexpr size_t pieceSize = sizeof httpbody;
constexpr size_t codedPiece = 16384;

/* What becomes of a response: it goes on, all of it came, it broke off, it could not be read, it was refused, the client
   has left. */
enum class Flow { on, finished, cut, unjudged, blocked, gone };
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

/* -- deliveryRead.cpp -- */

/* The next piece into httpbody. Text that comes slowly is put behind what httpbody has of it, and all of that judged
   again: how a page is cut by time must not decide what is found in it. `cut`: nothing more comes, though the body has
   not ended; what had arrived is judged and delivered first. */
Flow readPiece(Delivery &delivery);

/* -- deliveryRelease.cpp -- */

/* Whether the client is told how much comes. */
bool isKnownLength(const Delivery &delivery);

/* Whether the body ends for the client when its connection does. */
bool endsWithConnection(const Delivery &delivery);

/* The client's head, once; `flags` as sendWholeHead has them. False when the client is gone. */
bool sendClientHead(Delivery &delivery, int flags = 0);

/* Tells the client that the body is whole, where its framing has a way to. False when the client is gone. */
bool sendEnd(const Delivery &delivery);

/* Releases bytes of the body that stand at `delivered` of it, with the script where it belongs. */
bool release(Delivery &delivery, const char *bytes, size_t length);

/* -- deliveryScan.cpp -- */

/* Nobody could be asked, by the engines' verdict: goes on without a scan, or the response is refused. */
Flow handleUnscanned(Delivery &delivery, int32_t verdict);

/* Judges all that was collected since the last scan and lets it go. */
Flow scanCollected(Delivery &delivery);

/* Into the scan file. A client that has left is noticed here, since nothing is sent to it meanwhile. */
Flow collectPiece(Delivery &delivery, const char *piece, size_t length);

/* -- delivery.cpp -- */

/* What could not be examined: passed as it is from here on, when `passBit` of StrictHttp says so, or to be refused. */
bool passesUnexamined(Delivery &delivery, int32_t passBit, const char *what);

}  // namespace netsift

#endif
