#include "http/strictFraming.h"

#include <limits>

#include "http/strictField.h"
#include "http/strictTarget.h"

namespace netsift {
namespace {

constexpr uint64_t greatestLength = std::numeric_limits<int64_t>::max(); /* sums and differences stay in range */

constexpr StrictFault none{0, ""};
constexpr StrictFault badLength{400, "The browser's request has no valid length."};
constexpr StrictFault twoFramings{400, "The browser's request has both a length and a transfer coding."};
constexpr StrictFault codingInHttp10{400, "The browser's request has a transfer coding that its version lacks."};
constexpr StrictFault connectWithBody{400, "The browser's request for a tunnel has a body."};
constexpr StrictFault unknownCoding{501, "The browser's request has a transfer coding that is not known."};
constexpr StrictFault unknownExpectation{417, "The browser's request expects what cannot be met."};
constexpr StrictFault badStatusLine{502, "The web site's answer begins with a malformed line."};
constexpr StrictFault badAnswerLength{502, "The web site's answer has no valid length."};
constexpr StrictFault unknownAnswerCoding{502, "The web site's answer has a transfer coding that is not known."};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool parseLength(std::string_view digits, uint64_t &length) {
  length = 0;
  for (const char c : digits) {
    if (!isDigit(c)) return false;
    const auto digit = static_cast<uint64_t>(c - '0');
    if (length > (greatestLength - digit) / 10) return false;
    length = length * 10 + digit;
  }
  return !digits.empty();
}

enum class TransferCoding { absent, chunked, identity, other };

/* Nothing but one "chunked" is chunked. "identity", which HTTP/1.1 had until RFC 7230, is no coding at all. */
TransferCoding readTransferCoding(const HeaderLine *first) {
  TransferCoding coding = TransferCoding::absent;
  for (const HeaderLine *line = first; line != nullptr; line = line->next) {
    if (!isField(line, "Transfer-Encoding:")) continue;
    const std::string_view value = fieldValue(line, "Transfer-Encoding:");
    const bool isFirst = coding == TransferCoding::absent;
    coding = TransferCoding::other;
    if (isFirst && equalsIgnoringCase(value, "chunked")) coding = TransferCoding::chunked;
    if (isFirst && equalsIgnoringCase(value, "identity")) coding = TransferCoding::identity;
  }
  return coding;
}

StrictFault readExpectation(const HeaderLine *first, RequestFraming &framing) {
  for (const HeaderLine *line = first; line != nullptr; line = line->next) {
    if (!isField(line, "Expect:")) continue;
    if (!equalsIgnoringCase(fieldValue(line, "Expect:"), "100-continue")) return unknownExpectation;
    framing.expectsContinue = framing.length > 0 || framing.isChunked;
  }
  return none;
}

/* Kind, length and persistence of a response whose body its fields delimit. Chunks in HTTP/1.0 are read as others read
   them; it travels on in a framing of ours. */
void frameByFields(ResponseFraming &framing, TransferCoding coding, Lengths lengths) {
  if (coding == TransferCoding::other) {
    framing.fault = unknownAnswerCoding;
  } else if (coding == TransferCoding::chunked) {
    framing.kind = BodyKind::chunked;
    framing.upstreamPersists &= lengths == Lengths::absent && framing.line.minorVersion > 0;
  } else if (lengths == Lengths::given) {
    framing.kind = BodyKind::length;
    framing.upstreamPersists &= coding == TransferCoding::absent;
  } else {
    framing.kind = BodyKind::untilClose;
    framing.upstreamPersists = false;
  }
}

}  // namespace

StrictFault parseStatusLine(std::string_view line, StatusLine &status) {
  if (!line.ends_with("\r\n")) return badStatusLine;
  line.remove_suffix(2);
  if (line.size() < 12 || !line.starts_with("HTTP/1.") || !isDigit(line[7]) || line[8] != ' ') return badStatusLine;
  if (line[9] < '1' || line[9] > '9' || !isDigit(line[10]) || !isDigit(line[11])) return badStatusLine;
  if (line.size() > 12 && line[12] != ' ') return badStatusLine;
  status.minorVersion = static_cast<unsigned>(line[7] - '0');
  status.status = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
  return none;
}

Lengths readContentLength(const HeaderLine *first, uint64_t &length) {
  Lengths lengths = Lengths::absent;
  for (const HeaderLine *line = first; line != nullptr; line = line->next) {
    if (!isField(line, "Content-Length:")) continue;
    std::string_view list = fieldValue(line, "Content-Length:");
    if (list.empty() || list.back() == ',') return Lengths::bad;
    while (!list.empty()) {
      uint64_t value = 0;
      if (!parseLength(takeElement(list), value)) return Lengths::bad;
      if (lengths == Lengths::given && value != length) return Lengths::bad;
      lengths = Lengths::given;
      length = value;
    }
  }
  return lengths;
}

StrictFault requestFraming(const HeaderLine *first, RequestFraming &framing) {
  RequestLine line;
  const StrictFault fault = parseRequestLine(first == nullptr || first->text == nullptr ? "" : first->text, line);
  if (fault.status != 0) return fault;
  const Lengths lengths = readContentLength(first, framing.length);
  if (lengths == Lengths::bad) return badLength;
  const TransferCoding coding = readTransferCoding(first);
  if (coding != TransferCoding::absent) {
    if (lengths == Lengths::given) return twoFramings;
    if (line.minorVersion == 0) return codingInHttp10;
    if (coding != TransferCoding::chunked) return unknownCoding;
    framing.isChunked = true;
  }
  if ((framing.length > 0 || framing.isChunked) && line.method == "CONNECT") return connectWithBody;
  return line.minorVersion == 0 ? none : readExpectation(first, framing);
}

ResponseFraming responseFraming(const HeaderLine *first, bool requestWasHead) {
  ResponseFraming framing;
  framing.fault = parseStatusLine(first == nullptr || first->text == nullptr ? "" : first->text, framing.line);
  if (framing.fault.status != 0) return framing;
  const int status = framing.line.status;
  if (status < 200) {
    framing.kind = status == 101 ? BodyKind::switching : BodyKind::interim;
    framing.upstreamPersists = status != 101;
    return framing;
  }
  framing.upstreamPersists = keepsConnection(first, framing.line.minorVersion > 0);
  const Lengths lengths = readContentLength(first, framing.length);
  const TransferCoding coding = readTransferCoding(first);
  if (status == 204) {
    framing.upstreamPersists &= coding == TransferCoding::absent && lengths != Lengths::bad && framing.length == 0;
  } else if (lengths == Lengths::bad) {
    framing.fault = badAnswerLength;
  } else if (status != 304 && !requestWasHead) {
    frameByFields(framing, coding, lengths);
  }
  return framing;
}

}  // namespace netsift
