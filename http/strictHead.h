/* Message heads under StrictHttp, byte by byte as they arrive (RFC 9112 sections 2.2, 3 and 5). */
#ifndef NETSIFT_HTTP_STRICTHEAD_H
#define NETSIFT_HTTP_STRICTHEAD_H

#include <cstddef>
#include <string>
#include <string_view>

#include "http/strictParse.h"
#include "state/records.h"

namespace netsift {

enum class HeadPlace { startLine, fieldStart, fieldName, beforeColon, fieldValue, lineFeed };

/* A head on its way in. A new one for each message; `response` is the caller's to set, the rest the scan's. */
struct HeadScan {
  bool response = false;
  StrictFault fault{0, ""}; /* set once the scan has said bad; status 502 for every response */
  std::string text;         /* the head so far, whole once it said done; empty while nothing of a message has come */

  HeadPlace place = HeadPlace::startLine;
  size_t lineStart = 0; /* in `text` */
  size_t taken = 0;     /* bytes in all */
  unsigned fields = 0;
  bool emptyLineIgnored = false;
};

/* Takes bytes up to and including the empty line that ends the head, never one beyond; `used` says how many. `bad`
   comes with the first byte that spoils the head, `scan.fault` says why:
     400  a CR or LF that is not half of a line end, NUL, a folded line, blanks before a colon, a field line without a
          colon or with a bad name, a malformed start line (seen at that line's end, before any field)
     414  a request line over 8 KiB
     431  over 100 fields, or over 64 KiB of head
     505  another major version than 1
     502  any of these in a response
   One empty line before a request line is ignored. What old servers write is put right in a response: blanks before a
   colon are taken out, a fold becomes a blank, and LF alone ends a line too (RFC 9112 sections 5.1, 5.2 and 2.2). After
   bad or done the record is not fed again. */
Parse scanHead(HeadScan &scan, std::string_view bytes, size_t &used);

/* Makes the lines of a head that was scanned to its end: CR LF kept, the empty line last, both counts set. `header` is
   overwritten; the lines are for destroyHeader. */
void headToLines(const HeadScan &scan, Header &header);

}  // namespace netsift

#endif
