#include "http/strictForward.h"

#include "tests/http/strictHeads.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

TEST(RewriteRequest, AddressesTheNextHopAndKeepsWhatIsForTheOrigin) {
  const string noise =
      "Host: other\r\nTE: trailers\r\nProxy-Connection: keep-alive\r\nConnection: X-Hop, Content-Type:a,content-type, "
      "close\r\nKeep-Alive: 5\r\nX-Hop: 1\r\nX-Hop-Not: 2\r\nUpgrade-Insecure-Requests: 1\r\nUpgrade: h2c\r\n"
      "Content-Type:a: b\r\nContent-Length: 05\r\nExpect: 100-continue\r\nContent-Length: 5, 5\r\n"
      "Proxy-Authorization: Basic eA==";
  const string kept =
      "Connection: close\r\nX-Hop-Not: 2\r\nUpgrade-Insecure-Requests: 1\r\nContent-Type:a: b\r\nContent-Length: 5\r\n";
  const struct {
    string line, toOrigin, toProxy;
  } cases[] = {
      {"GET http://H:80?q HTTP/1.1", "GET /?q HTTP/1.1\r\nHost: h", "GET http://h/?q HTTP/1.1\r\nHost: h"},
      {"GET https://h:80/a/ HTTP/1.0", "GET /a/ HTTP/1.0\r\nHost: h", "GET https://h:80/a/ HTTP/1.0\r\nHost: h:80"},
      {"PUT /a HTTP/1.9", "PUT /a HTTP/1.0\r\nHost: other", "PUT http://other/a HTTP/1.0\r\nHost: other"},
      {"OPTIONS http://h:8 HTTP/1.1", "OPTIONS * HTTP/1.1\r\nHost: h:8", "OPTIONS http://h:8 HTTP/1.1\r\nHost: h:8"},
      {"CONNECT h:443 HTTP/1.1", "", "CONNECT h:443 HTTP/1.1\r\nHost: h:443"},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(test.line);
    const string lines = test.line + "\r\n" + noise;
    ScannedHead origin(lines), proxy(lines);
    StrictTarget target;
    ASSERT_EQ(parseStrictTarget(origin.header.first, target).status, 0);
    rewriteForProxy(proxy.header, target);
    EXPECT_EQ(proxy.text(), test.toProxy + "\r\n" + kept + "Proxy-Authorization: Basic eA==\r\n\r\n");
    if (test.toOrigin.empty()) continue;
    rewriteForOrigin(origin.header, target);
    EXPECT_EQ(origin.text(), test.toOrigin + "\r\n" + kept + "\r\n");
  }
}

TEST(AddVia, StandsBehindEarlierHops) {
  ScannedHead first("GET / HTTP/1.1\r\nA: b"), later("GET / HTTP/1.1\r\nvia: 1.0 x\r\nA: b\r\nVia: 1.1 y\r\nC: d");
  addVia(first.header, 1);
  addVia(later.header, 0);
  EXPECT_EQ(first.text(), "GET / HTTP/1.1\r\nVia: 1.1 netsift\r\nA: b\r\n\r\n");
  EXPECT_EQ(later.text(), "GET / HTTP/1.1\r\nvia: 1.0 x\r\nA: b\r\nVia: 1.1 y\r\nVia: 1.0 netsift\r\nC: d\r\n\r\n");
}

TEST(CleanResponseHead, LeavesWhatTheClientNeeds) {
  const string line = "HTTP/1.1 407 x\r\n", challenge = "Proxy-Authenticate: Basic\r\nProxy-Authenticate: Digest\r\n";
  const string fields =
      "Connection: X-Hop, Content-Encoding, Transfer-Encoding\r\nX-Hop: 1\r\nContent-Encoding: gzip\r\nTrailer: a\r\n"
      "Content-Length: 7\r\nSet-Cookie: b\r\nContent-Length: 7\r\n" +
      challenge + "Transfer-Encoding: chunked";
  ScannedHead origin(line + fields), proxy(line + fields), empty("HTTP/1.1 204 x\r\n" + fields);
  cleanResponseHead(origin.header, false);
  EXPECT_EQ(origin.text(), line + "Content-Encoding: gzip\r\nContent-Length: 7\r\nSet-Cookie: b\r\n\r\n");
  cleanResponseHead(proxy.header, true);
  setConnection(proxy.header, true);
  setContentLength(proxy.header, 18446744073709551615u);
  EXPECT_EQ(proxy.text(),
            line + "Connection: close\r\nContent-Encoding: gzip\r\nContent-Length: 18446744073709551615\r\n" +
                "Set-Cookie: b\r\n" + challenge + "\r\n");
  cleanResponseHead(empty.header, false);
  EXPECT_EQ(empty.text(), "HTTP/1.1 204 x\r\nContent-Encoding: gzip\r\nSet-Cookie: b\r\n\r\n");
}
