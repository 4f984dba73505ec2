/* A response on its way from the upstream to the client: what its parts in delivery*.cpp share. Internal to
   connection/strict/. */
#ifndef NETSIFT_CONNECTION_STRICT_DELIVERY_H
#define NETSIFT_CONNECTION_STRICT_DELIVERY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "connection/cycle.h"
#include "content/pageWords.h"
#include "http/strictCoding.h"
#include "http/strictWire.h"
#include "http/wait.h"
#include "scan/scanSpool.h"
#include "state/connection.h"

namespace netsift {

constexpr size_t pieceSize = sizeof httpbody;
constexpr size_t codedPiece = 16384;
constexpr size_t mostHeld = 256 * 1024; /* of text whose last word is open, and of coded bytes that give no text */

/* What becomes of a response: it goes on, all of it came, it broke off, it could not be read, it was refused, the client
   has left. */
enum class Flow { on, finished, cut, unjudged, blocked, gone };

struct Delivery {
  Connection &connection;
  Cycle &cycle;
  BodySource source;

  bool judges = false;              /* text that ratings and phrases are looked for in */
  std::unique_ptr<PageWords> words; /* of a page that is judged by them */
  bool gathers = false;             /* in pieces as large as can be had */
  bool scans = false;
  bool inserts = false; /* the pop-up script, where an html tag is found */
  bool decodes = false;
  bool passesCoded = false; /* though it is decoded for the checks, the client gets it as it came */
  CodingChain decoder;
  std::array<char, codedPiece> coded;
  size_t codedStart = 0, codedEnd = 0;
  bool decoderHoldsOutput = false;
  std::string pending; /* of the coded bytes: those whose text has not all passed yet */
  size_t settled = 0;  /* of them: those whose text had all come out when the last ones were read */
  File codedSpool;     /* those whose text is in the scan file, a file without a name */
  uint64_t codedSpooled = 0;

  size_t size = 0;                         /* of what is in httpbody and judged as one */
  size_t fresh = 0;                        /* where in it the piece begins that was read last */
  bool first = true, inFirstWindow = true; /* `first`: there was no text yet */
  bool waits = false; /* the page would be condemned if it ended here: what was read last is held back */
  std::string held;   /* text read before that, which is too */
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

/* How long the upstream may say nothing; negative: without limit. */
int upstreamMilliseconds();

/* Nothing more comes, though the body has not ended. */
Flow cutOff(Delivery &delivery, bool timedOut);

/* Takes the coded bytes whose text has all come out of the decoder. */
std::string takeSettled(Delivery &delivery);

/* -- deliveryRelease.cpp -- */

/* Whether the client gets other bytes than came. */
bool isChanged(const Delivery &delivery);

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

/* Releases a piece that has passed, or the coded bytes whose text has. */
bool releasePiece(Delivery &delivery, const char *piece, size_t length);

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
