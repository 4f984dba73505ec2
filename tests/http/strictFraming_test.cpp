#include "http/strictFraming.h"

#include "tests/http/strictHeads.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

/* The fault's status, or the length. */
string request(const string &fields, const string &line = "POST / HTTP/1.1") {
  const ScannedHead head(line + "\r\n" + fields);
  RequestFraming framing;
  const StrictFault fault = requestFraming(head.header.first, framing);
  if (fault.status != 0) return std::to_string(fault.status);
  return "length " + std::to_string(framing.length) + (framing.expectsContinue ? " expects" : "");
}

string response(const string &lines, bool toHead = false) {
  static const char *kinds[] = {"none", "length ", "chunked", "close", "switching", "interim"};
  const ScannedHead head(lines);
  const ResponseFraming framing = responseFraming(head.header.first, toHead);
  if (framing.fault.status != 0) return std::to_string(framing.fault.status);
  const bool counts = framing.kind == BodyKind::length;
  return kinds[static_cast<int>(framing.kind)] + (counts ? std::to_string(framing.length) : "") +
         (framing.upstreamPersists ? " persists" : "");
}

}  // namespace

TEST(RequestFraming, ReadsOrRefuses) {
  EXPECT_EQ(request("A: b"), "length 0");
  EXPECT_EQ(request("Content-Length: 9223372036854775807"), "length 9223372036854775807");
  EXPECT_EQ(request("Content-Length:\t007 \r\nExpect: 100-Continue"), "length 7 expects");
  EXPECT_EQ(request("content-length: 5\r\nCONTENT-LENGTH: 5, 5"), "length 5");
  EXPECT_EQ(request("Expect: 100-continue\r\nContent-Length: 3", "POST / HTTP/1.0"), "length 3");
  EXPECT_EQ(request("Content-Length: 1", "CONNECT h:443 HTTP/1.1"), "400");
  EXPECT_EQ(request("Transfer-Encoding: chunked", "POST / HTTP/1.0"), "400");
  EXPECT_EQ(request("Transfer-Encoding: chunked\r\nContent-Length: 0"), "400");
  EXPECT_EQ(request("Transfer-Encoding: Chunked"), "411");
  EXPECT_EQ(request("Expect: magic"), "417");
  for (const char *length : {"9223372036854775808", "18446744073709551621", "5\r\nContent-Length: 6", "5, 6", "5,",
                             ",5", "+5", "-1", "0x5", "5 5", ""}) {
    EXPECT_EQ(request(string("Content-Length: ") + length), "400") << length;
  }
  for (const char *coding : {"xchunked", "gzip, chunked", "chunked, chunked", "chunked;a=b", "identity", "",
                             "chunked\r\nTransfer-Encoding: identity"}) {
    EXPECT_EQ(request(string("Transfer-Encoding: ") + coding), "501") << coding;
  }
}

TEST(ResponseFraming, ReadsOrRefuses) {
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nContent-Length: 0"), "length 0 persists");
  EXPECT_EQ(response("HTTP/1.1 404\r\nContent-Length: 7\r\nConnection: x, Close"), "length 7");
  EXPECT_EQ(response("HTTP/1.0 200 OK\r\nContent-Length: 7"), "length 7");
  EXPECT_EQ(response("HTTP/1.0 999 \r\nContent-Length: 7\r\nConnection: keep-alive"), "length 7 persists");
  EXPECT_EQ(response("HTTP/1.1 200 OK"), "close");
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nTransfer-Encoding: CHUNKED"), "chunked persists");
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 7"), "chunked");
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: x"), "502");
  EXPECT_EQ(response("HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked"), "502");
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nContent-Length: 7, 8"), "502");
  EXPECT_EQ(response("HTTP/1.1 100 Continue\r\nContent-Length: x"), "interim persists");
  EXPECT_EQ(response("HTTP/1.1 101 Switching Protocols"), "switching");
  EXPECT_EQ(response("HTTP/1.1 204 No Content"), "none persists");
  EXPECT_EQ(response("HTTP/1.1 204 No Content\r\nContent-Length: 5"), "none");
  EXPECT_EQ(response("HTTP/1.1 304 Not Modified\r\nContent-Length: 5"), "none persists");
  EXPECT_EQ(response("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked", true), "none persists");
  StatusLine status;
  for (const char *line : {"HTTP/1.1 20\r\n", "HTTP/1.1 2000\r\n", "HTTP/1.1 099 x\r\n", "HTTP/1.1  200 x\r\n",
                           "HTTP/2.0 200 x\r\n", "http/1.1 200 x\r\n", "HTTP/1.1 200", "HTTP/1.1 +20 x\r\n", "\r\n"}) {
    EXPECT_EQ(parseStatusLine(line, status).status, 502) << line;
  }
}
