/* Framing fields, compared with a plain reading of what a sender may write: the input is field lines alone, put behind
   a start line that its first byte chooses. Only one Content-Length, or one "chunked", frames a body. */
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "http/httpHeader.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"

using namespace netsift;

namespace {

constexpr const char *startLines[] = {"POST / HTTP/1.1\r\n", "POST / HTTP/1.0\r\n",     "HTTP/1.1 200 OK\r\n",
                                      "HTTP/1.0 200 OK\r\n", "HTTP/1.1 204 x\r\n",      "HTTP/1.1 304 x\r\n",
                                      "HTTP/1.1 100 x\r\n",  "CONNECT h:1 HTTP/1.1\r\n"};

void check(bool holds) {
  if (!holds) std::abort();
}

bool has(const std::string &text, const char *name) { return text.find(name) != std::string::npos; }

void checkRequest(const HeaderLine *first, const std::string &text) {
  RequestFraming framing;
  if (requestFraming(first, framing).status != 0) return;
  check(!has(text, "\ntransfer-encoding:"));
  check(has(text, "\ncontent-length:") ? has(text, std::to_string(framing.length).c_str()) : framing.length == 0);
  check(framing.length <= INT64_MAX && (!framing.expectsContinue || has(text, "100-continue")));
}

void checkResponse(const HeaderLine *first, const std::string &text) {
  const ResponseFraming framing = responseFraming(first, false);
  if (framing.fault.status != 0) return;
  const bool coded = has(text, "\ntransfer-encoding:");
  if (framing.kind == BodyKind::chunked) check(coded && has(text, "chunked") && text.starts_with("http/1.1"));
  if (framing.kind == BodyKind::length) check(!coded && has(text, std::to_string(framing.length).c_str()));
  if (framing.kind == BodyKind::untilClose)
    check(!coded && !has(text, "\ncontent-length:") && !framing.upstreamPersists);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  std::string text = startLines[data[0] % std::size(startLines)];
  text.append(reinterpret_cast<const char *>(data) + 1, size - 1).append("\r\n\r\n");
  HeadScan scan;
  scan.response = text.starts_with("HTTP");
  size_t used = 0;
  if (scanHead(scan, text, used) != Parse::done) return 0;
  Header header{};
  headToLines(scan, header);
  std::string lower = scan.text;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (scan.response) {
    checkResponse(header.first, lower);
  } else {
    checkRequest(header.first, lower);
  }
  destroyHeader(&header);
  return 0;
}
