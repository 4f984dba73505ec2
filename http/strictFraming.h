/* Where a message's body ends, read from its head (RFC 9112 sections 6 and 9.3). Pure functions over a head that
   scanHead passed, asked before anything in it is rewritten. */
#ifndef NETSIFT_HTTP_STRICTFRAMING_H
#define NETSIFT_HTTP_STRICTFRAMING_H

#include <cstdint>
#include <string_view>

#include "http/strictParse.h"
#include "state/records.h"

namespace netsift {

struct StatusLine {
  unsigned minorVersion = 0; /* the digit after "HTTP/1." */
  int status = 0;            /* 100 to 999 */
};

/* Reads a status line, its CR LF included. The blank before an empty reason may be missing. */
StrictFault parseStatusLine(std::string_view line, StatusLine &status);

enum class Lengths { absent, given, bad };

/* The Content-Length of a head, at most 2^63 - 1. Fields and list elements that repeat one value ("5, 5") count as that
   value, and a head so rewritten names it once; anything else but digits is bad. */
Lengths readContentLength(const HeaderLine *first, uint64_t &length);

struct RequestFraming {
  bool isChunked = false;       /* the body is for decodeChunks, its length not known */
  uint64_t length = 0;          /* bytes of another body; 0 also when the head names none */
  bool expectsContinue = false; /* the client waits for "100 Continue" before it sends the body, which is not empty */
};

/* Faults: 400 for a bad Content-Length, one beside a Transfer-Encoding, a Transfer-Encoding in HTTP/1.0, a CONNECT with
   a body; 501 for other transfer codings; 417 for an expectation other than 100-continue. An
   HTTP/1.0 client's expectations are ignored. */
StrictFault requestFraming(const HeaderLine *first, RequestFraming &framing);

enum class BodyKind {
  none,       /* HEAD, 204, 304: ends with its head, whatever fields say */
  length,     /* exactly `length` bytes, 0 too */
  chunked,    /* for decodeChunks */
  untilClose, /* up to the end of the connection */
  switching,  /* 101: what follows is another protocol */
  interim,    /* another 1xx: the answer's head is still to come */
};

struct ResponseFraming {
  StrictFault fault{0, ""}; /* 502: bad status line or Content-Length, unknown transfer coding, or one in HTTP/1.0 */
  StatusLine line;
  BodyKind kind = BodyKind::none;
  uint64_t length = 0;
  bool upstreamPersists = false; /* once the body has been read to its end, a next request may follow */
};

/* Chunked overrides a Content-Length, which is then checked but not used, and the connection is not kept. So it is
   after a 204 that announces a body. The 2xx answer to a CONNECT has no body either: ask with requestWasHead. */
ResponseFraming responseFraming(const HeaderLine *first, bool requestWasHead);

}  // namespace netsift

#endif
