/* Heads: the first byte chooses request or response and the size of the pieces. However a head is cut, it is read the
   same; what is passed can be read for target, framing and coding, forwarded, and passes again. */
#include <cstdint>
#include <cstdlib>
#include <string>

#include "http/httpHeader.h"
#include "http/strictCoding.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"

using namespace netsift;

namespace {

Parse scanPieces(HeadScan &scan, std::string_view text, size_t pieceSize, size_t &total) {
  Parse answer = Parse::more;
  for (total = 0; answer == Parse::more && total < text.size();) {
    size_t used = 0;
    const std::string piece(text.substr(total, pieceSize));
    answer = scanHead(scan, piece, used);
    total += used;
  }
  return answer;
}

void check(bool holds) {
  if (!holds) std::abort();
}

void forwardRequest(Header &header) {
  StrictTarget target;
  RequestFraming framing;
  if (requestFraming(header.first, framing).status != 0) return;
  if (parseStrictTarget(header.first, target).status != 0) return;
  check(!target.host.empty() && target.port >= 1 && target.port <= 65535 && !strictUrl(target).empty());
  if (target.form == TargetForm::authority) {
    rewriteForProxy(header, target);
  } else {
    rewriteForOrigin(header, target);
  }
  addVia(header, target.minorVersion);

  StrictTarget again;
  RequestFraming framingAgain;
  check(parseStrictTarget(header.first, again).status == 0);
  check(again.host == target.host && again.port == target.port);
  check(requestFraming(header.first, framingAgain).status == 0 && framingAgain.length == framing.length);
}

void forwardResponse(Header &header) {
  const ResponseFraming framing = responseFraming(header.first, false);
  readContentCoding(header.first);
  if (framing.fault.status != 0 || framing.kind == BodyKind::switching) return;
  cleanResponseHead(header, true);
  if (framing.kind == BodyKind::chunked) removeContentLengthFields(header);
  setConnection(header, !framing.upstreamPersists);
  const ResponseFraming again = responseFraming(header.first, false);
  check(again.fault.status == 0);
  check(framing.kind == BodyKind::chunked ? again.kind == BodyKind::untilClose : again.kind == framing.kind);
  check(framing.kind != BodyKind::length || again.length == framing.length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  HeadScan whole, pieces;
  whole.response = pieces.response = (data[0] & 0x80) != 0;
  size_t total = 0, totalOfPieces = 0;
  const Parse answer = scanPieces(whole, text, size, total);
  check(scanPieces(pieces, text, 1 + (data[0] & 0x7F), totalOfPieces) == answer && total == totalOfPieces);
  check(whole.text == pieces.text && whole.fault.status == pieces.fault.status);
  if (answer != Parse::done) return 0;

  check(whole.text.ends_with("\r\n\r\n") && whole.text.find('\0') == std::string::npos);
  Header header{};
  headToLines(whole, header);
  if (whole.response) {
    forwardResponse(header);
  } else {
    forwardRequest(header);
  }
  HeadScan forwarded;
  forwarded.response = whole.response;
  std::string rewritten;
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) rewritten += line->text;
  destroyHeader(&header);
  const Parse answerAgain = scanPieces(forwarded, rewritten, rewritten.size(), total);
  const bool outgrown = forwarded.fault.status == 431 || forwarded.fault.status == 414 || forwarded.fields > 100;
  check((answerAgain == Parse::done && total == rewritten.size()) || outgrown || rewritten.size() > 65536);
  return 0;
}
