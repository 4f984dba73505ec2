#include "http/strictHead.h"

#include <algorithm>
#include <cstdlib>

#include "http/httpHeader.h"
#include "http/strictField.h"
#include "http/strictFraming.h"
#include "http/strictTarget.h"

namespace netsift {
namespace {

constexpr size_t longestHead = 64 * 1024;
constexpr size_t longestRequestLine = 8 * 1024;
constexpr unsigned mostFields = 100;

constexpr StrictFault none{0, ""};
constexpr StrictFault bareLineEnd{400, "A message's head has a line that does not end with CR and LF."};
constexpr StrictFault nul{400, "A message's head has a NUL in it."};
constexpr StrictFault emptyStart{400, "A message begins with empty lines."};
constexpr StrictFault folded{400, "A message's head has a folded line."};
constexpr StrictFault blankBeforeColon{400, "A message's head has a blank in or after the name of a field."};
constexpr StrictFault badName{400, "A message's head has a line that is no field."};
constexpr StrictFault longRequestLine{414, "The browser's request names an address that is too long."};
constexpr StrictFault tooManyFields{431, "A message's head has too many fields."};
constexpr StrictFault tooLong{431, "A message's head is too long."};

bool isBlank(char c) { return c == ' ' || c == '\t'; }

StrictFault checkStartLine(HeadScan &scan) {
  if (scan.text == "\r\n") {
    if (scan.response || scan.emptyLineIgnored) return emptyStart;
    scan.emptyLineIgnored = true;
    scan.text.clear();
    return none;
  }
  StatusLine status;
  RequestLine request;
  return scan.response ? parseStatusLine(scan.text, status) : parseRequestLine(scan.text, request);
}

/* Goes on with the line before, after one blank for the fold (RFC 9112 section 5.2). */
StrictFault unfold(HeadScan &scan) {
  if (!scan.response || scan.fields == 0) return folded;
  scan.lineStart = scan.text.size() - 2;
  scan.text.replace(scan.lineStart, 2, " ");
  scan.place = HeadPlace::fieldValue;
  return none;
}

/* The byte at a place of the head that is not behind a CR. */
StrictFault takeByte(HeadScan &scan, char c) {
  const bool lineEnds = c == '\r';
  switch (scan.place) {
    case HeadPlace::startLine:
      if (!scan.response && !lineEnds && scan.text.size() == longestRequestLine) return longRequestLine;
      break;
    case HeadPlace::fieldStart:
      if (lineEnds) break;
      if (isBlank(c)) return unfold(scan);
      if (!isTokenCharacter(c)) return badName;
      if (++scan.fields > mostFields) return tooManyFields;
      scan.place = HeadPlace::fieldName;
      break;
    case HeadPlace::fieldName:
    case HeadPlace::beforeColon:
      if (c == ':') {
        scan.place = HeadPlace::fieldValue;
      } else if (isBlank(c)) {
        if (!scan.response) return blankBeforeColon;
        scan.place = HeadPlace::beforeColon;
        return none;
      } else if (scan.place == HeadPlace::beforeColon || !isTokenCharacter(c)) {
        return badName;
      }
      break;
    default:
      break;
  }
  scan.text += c;
  if (lineEnds) scan.place = HeadPlace::lineFeed;
  return none;
}

/* The LF that ends a line: behind a CR or, in an answer, without one. */
StrictFault endLine(HeadScan &scan) {
  if (scan.place != HeadPlace::lineFeed) {
    const StrictFault fault = scan.response ? takeByte(scan, '\r') : bareLineEnd;
    if (fault.status != 0) return fault;
  }
  scan.text += '\n';
  scan.place = HeadPlace::fieldStart;
  if (scan.lineStart == 0) {
    const StrictFault fault = checkStartLine(scan);
    if (fault.status != 0) return fault;
    if (scan.text.empty()) scan.place = HeadPlace::startLine;
  }
  return none;
}

/* How many bytes at the front change nothing but the text: a name's characters, or what is no control byte. */
size_t countPlain(const HeadScan &scan, std::string_view bytes) {
  const bool inName = scan.place == HeadPlace::fieldName, inLine = scan.place == HeadPlace::startLine;
  if (!inName && !inLine && scan.place != HeadPlace::fieldValue) return 0;
  const size_t limit = inLine ? longestRequestLine : longestHead;
  bytes = bytes.substr(0, limit - std::min(limit, inLine ? scan.text.size() : scan.taken));
  size_t count = 0;
  if (inName) {
    while (count < bytes.size() && isTokenCharacter(bytes[count])) count++;
  } else {
    while (count < bytes.size() && static_cast<unsigned char>(bytes[count]) >= ' ') count++;
  }
  return count;
}

}  // namespace

Parse scanHead(HeadScan &scan, std::string_view bytes, size_t &used) {
  for (used = 0; used < bytes.size();) {
    const size_t plain = countPlain(scan, bytes.substr(used));
    scan.text.append(bytes, used, plain);
    scan.taken += plain;
    used += plain;
    if (used == bytes.size()) break;

    const char c = bytes[used++];
    StrictFault fault = none;
    if (++scan.taken > longestHead) {
      fault = tooLong;
    } else if (c == '\0') {
      fault = nul;
    } else if (c != '\n' && scan.place == HeadPlace::lineFeed) {
      fault = bareLineEnd;
    } else {
      fault = c == '\n' ? endLine(scan) : takeByte(scan, c);
    }
    if (fault.status != 0) {
      scan.fault = {scan.response ? 502 : fault.status, fault.text};
      return Parse::bad;
    }
    if (c != '\n') continue;
    if (scan.text.size() - scan.lineStart == 2) return Parse::done;
    scan.lineStart = scan.text.size();
  }
  return Parse::more;
}

void headToLines(const HeadScan &scan, Header &header) {
  header = Header{nullptr, static_cast<uint32_t>(scan.text.size()), 0};
  HeaderLine **link = &header.first;
  for (std::string_view rest = scan.text; !rest.empty();) {
    const size_t lineFeed = rest.find('\n');
    HeaderLine *line = createHeaderLine();
    if (line == nullptr) std::abort();
    setLine(line, rest.substr(0, lineFeed - 1));
    rest.remove_prefix(lineFeed + 1);
    *link = line;
    link = &line->next;
    header.lineCount++;
  }
}

}  // namespace netsift
