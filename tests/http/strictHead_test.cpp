#include "http/strictHead.h"

#include "http/httpHeader.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "tests/support/support.h"

namespace {

const string get = "GET / HTTP/1.1\r\n", ok = "HTTP/1.1 200 OK\r\n";

/* The outcome is the head that was gathered, "|" and what is left; or the fault's status after how many bytes. */
void expectScan(const string &text, const string &outcome, bool response = false) {
  const GuardedText guarded(text, false);
  for (const size_t pieceSize : {1 << 20, 1, 7}) {
    HeadScan scan;
    scan.response = response;
    Parse answer = Parse::more;
    size_t total = 0;
    for (size_t used = 0; answer == Parse::more && total < text.size(); total += used)
      answer = scanHead(scan, {guarded.get() + total, std::min(pieceSize, text.size() - total)}, used);
    string found = std::to_string(scan.fault.status) + " at " + std::to_string(total);
    if (answer != Parse::bad) found = answer == Parse::more ? "more" : scan.text + "|" + text.substr(total);
    EXPECT_TRUE(found == outcome) << testing::PrintToString(text) << " by " << pieceSize << ": " << found;
  }
}

string at(int status, size_t size) { return std::to_string(status) + " at " + std::to_string(size); }

TEST(ScanHead, StopsBehindTheEmptyLineOrAtTheByteThatSpoilsTheHead) {
  expectScan(get + "\r\nGET", get + "\r\n|GET");
  expectScan("\r\n" + get + "B:\t: \x01\xFF \r\nC:\r\n\r\n", get + "B:\t: \x01\xFF \r\nC:\r\n\r\n|");
  expectScan(ok + "A \t: b\r\n\r\nx", ok + "A: b\r\n\r\n|x", true);
  expectScan(ok + "A:\r\n b\r\n\t\r\nC: d\r\n\r\nx", ok + "A: b \r\nC: d\r\n\r\n|x", true);
  expectScan("HTTP/1.1 200\nA: b\n c\r\n\nx", "HTTP/1.1 200\r\nA: b c\r\n\r\n|x", true);
  expectScan(get + "A: b\r\n\r", "more");
  for (const string &spoilt : std::vector<string>{
           "\r\n\r\n", "\n", get + "A: b\n", get + "A: b\rX", get + "\rG", get + "A: b\r\r", get + "\n",
           get + string("A: \0", 4), get + "A: b\r\n ", get + "\t", get + "A ", get + ":", get + "A\r", get + "A\x80",
           "GET /\r\n", "GET  / HTTP/1.1\r\n", "GET / HTTP/1.1 \r\n", string("\x16\x03\x01\0", 4)})
    expectScan(spoilt + ":\r\n\r\n", at(400, spoilt.size()));
  expectScan("PRI * HTTP/2.0\r\n\r\n", at(505, 16));
  expectScan(string(33, 'M') + " / HTTP/1.1\r\n\r\n", at(501, 46));
  for (const string &spoilt :
       std::vector<string>{ok + "A b", ok + "\t", ok + "A\n", ok + "A: b\rX", "\n", "\r\n", "SSH-2.0-x\r\n", ok + "A\r",
                           "HTTP/1.1 20\r\n", "HTTP/1.1 2000\r\n", "HTTP/1.1 099 x\r\n", "HTTP/1.1  200 x\r\n",
                           "HTTP/2.0 200 x\r\n", "http/1.1 200 x\r\n", "HTTP/1.1 +20 x\r\n"})
    expectScan(spoilt + ":\r\n\r\n", at(502, spoilt.size()), true);
}

TEST(ScanHead, HoldsTheLimitsToTheByte) {
  const string line = "GET /" + string(8192 - 14, 'a') + " HTTP/1.1\r\n\r\n";
  expectScan(line, line + "|");
  expectScan("a" + line, at(414, 8193));
  string fields = get;
  for (int i = 0; i < 100; i++) fields += "A: b\r\n";
  expectScan(fields + "\r\n", fields + "\r\n|");
  expectScan(fields + "A: b\r\n\r\n", at(431, fields.size() + 1));
  const string most = get + "A:" + string(65536 - 22, 'b') + "\r\n\r\n";
  expectScan(most, most + "|");
  expectScan("\r\n" + most, at(431, 65537));
  expectScan(ok + "A" + string(70000, ' '), at(502, 65537), true); /* blanks that are taken out count too */
}

/* The lines of a head that the scan must pass, written without the last CR LF and the empty line. */
struct ScannedHead : Header {
  bool response;
  explicit ScannedHead(const string &lines) : response(lines.starts_with("HTTP/")) {
    HeadScan scan;
    scan.response = response;
    size_t used = 0;
    EXPECT_EQ(scanHead(scan, lines + "\r\n\r\n", used), Parse::done) << scan.fault.text << lines;
    headToLines(scan, *this);
    EXPECT_EQ(totalBytes, lines.size() + 4);
  }
  ~ScannedHead() { destroyHeader(this); }
  string text() const {
    string all;
    for (const HeaderLine *line = first; line != nullptr; line = line->next) all += line->text;
    return all;
  }
};

/* Scheme, host, port and URL of a request and the length of its body, or what ends a response's body and what that is
   coded in; the status of the fault instead where there is one. */
string read(const string &lines, bool answersHead = false) {
  const ScannedHead head(lines);
  if (!head.response) {
    StrictTarget target;
    RequestFraming framing;
    StrictFault fault = parseStrictTarget(head.first, target);
    if (fault.status == 0) fault = requestFraming(head.first, framing);
    if (fault.status != 0) return std::to_string(fault.status);
    string resolved;
    for (const string &url : urlReadings(target)) resolved += " or " + url;
    return target.scheme + " " + target.host + " " + std::to_string(target.port) + " " + strictUrl(target) + resolved +
           (target.keepAlive ? " keep" : "") + (framing.length > 0 ? " body " + std::to_string(framing.length) : "") +
           (framing.isChunked ? " chunked" : "") + (framing.expectsContinue ? " expects" : "");
  }
  const ResponseFraming framing = responseFraming(head.first, answersHead);
  if (framing.fault.status != 0) return std::to_string(framing.fault.status);
  const string length = "length " + std::to_string(framing.length);
  const string kinds[] = {"none", length, "chunked", "close", "switching", "interim"};
  return kinds[static_cast<int>(framing.kind)] + (framing.upstreamPersists ? " persists" : "");
}

TEST(StrictHead, SaysWhatIsAddressedAndWhereTheBodyEnds) {
  const string path(498, 'a'), post = "POST / HTTP/1.1\r\nHost: h\r\n", length7 = "Content-Length: 7\r\n";
  const std::pair<string, string> cases[] = {
      {"GET /a/?q#f HTTP/1.1\r\nHost: H.Example.:81", "http h.example 81 h.example/a/?q keep"},
      {"GET / HTTP/1.0\r\nHost: h:", "http h 80 h"},
      {"GET HTTPS://H HTTP/1.0\r\nConnection: keep-alive", "https h 443 h keep"},
      {"GET http://a:65535?x HTTP/1.1\r\nHost: b", "http a 65535 a/?x keep"},
      {"GET http://[::1]:8/%41%2f%00%4 HTTP/1.2\r\nHost: b\r\nConnection: CLOSE", "http [::1] 8 [::1]/A/%00%4"},
      {"GET /\xC3\xA4 HTTP/1.1\r\nHost: 0x7F.1", "http 127.0.0.1 80 127.0.0.1/\xC3\xA4 keep"},
      {"GET /a/./b/../%2E%2e/c/. HTTP/1.0\r\nHost: h", "http h 80 h/a/./b/../../c/. or h/c"},
      {"GET http://h/a%2F..%2Fb/..?/../ HTTP/1.0", "http h 80 h/a/../b/..?/.. or h/?/.."},
      {"GET /a%2F HTTP/1.0\r\nHost: h", "http h 80 h/a/ or h/a"},
      {"GET /../.. HTTP/1.0\r\nHost: h", "http h 80 h/../.. or h"},
      {"CONNECT h.:8443 HTTP/1.1\r\nHost: other", "http h 8443 h keep"},
      {"UPDATEREDIRECTREF http://h/ HTTP/1.0", "http h 80 h"},
      {"GET /" + path + "/ HTTP/1.0\r\nHost: h", "http h 80 h/" + path},
      {"GET /" + path + "b/ HTTP/1.0\r\nHost: h", "http h 80 h/" + path + "..."},
      {post + "Content-Length: 9223372036854775807", "http h 80 h keep body 9223372036854775807"},
      {post + "Content-Length:\t007 \r\nExpect: 100-Continue", "http h 80 h keep body 7 expects"},
      {post + "content-length: 5\r\nCONTENT-LENGTH: 5, 5", "http h 80 h keep body 5"},
      {"POST http://h HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: 3", "http h 80 h body 3"},
      {post + "Transfer-Encoding:\tChunked\r\nExpect: 100-continue", "http h 80 h keep chunked expects"},
      {"HTTP/1.1 404\r\n" + length7 + "Connection: x, Close", "length 7"},
      {"HTTP/1.0 200 OK\r\nContent-Length: 7", "length 7"},
      {"HTTP/1.0 999 \r\n" + length7 + "Connection: keep-alive", "length 7 persists"},
      {ok + "Content-Length: 0", "length 0 persists"},
      {"HTTP/1.1 200 OK", "close"},
      {ok + "Transfer-Encoding: CHUNKED", "chunked persists"},
      {ok + length7 + "Transfer-Encoding: chunked", "chunked"},
      {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nTransfer-Encoding: chunked", "chunked"},
      {ok + length7 + "Transfer-Encoding: Identity", "length 7"},
      {ok + "Transfer-Encoding: identity", "close"},
      {"HTTP/1.1 100 Continue\r\nContent-Length: x", "interim persists"},
      {"HTTP/1.1 101 Switching Protocols", "switching"},
      {"HTTP/1.1 204 No Content", "none persists"},
      {"HTTP/1.1 204 No Content\r\nContent-Length: 5", "none"},
      {"HTTP/1.1 304 Not Modified\r\nContent-Length: 5", "none persists"}};
  for (const auto &[lines, expected] : cases) EXPECT_EQ(read(lines), expected) << lines;
  EXPECT_EQ(read(ok + "Transfer-Encoding: chunked", true), "none persists");
}

/* The host and the URL, and what servers may read for it, of a target as people and programs write it. */
TEST(StrictTarget, HasOneHostHoweverItIsWrittenAndEveryPathThatServersMayRead) {
  const std::pair<string, std::vector<string>> cases[] = {
      {"127.0.0.1", {"http://017700000001/", "http://127.1./", "http://2130706433/", "http://[::ffff:7F00:1]/"}},
      {"[2001::db8]", {"http://[2001:0:0::0DB8]/"}},
      {"h", {"http://h%2E/"}},
      {"ha", {"http://%68%41/"}},
      {"xn--bcher-kva.example",
       {"http://B\u00DCcher.example/", "http://b%c3%bccher%E3%80%82example/", "http://XN--Bcher-KVA.example/"}},
      {"a.example", {"http://\xEF\xBD\x81.example/" /* a full-width letter */}},
      {"400",
       {"http://\xFF.example/", "http://a%E2%84%80.example/" /* a sign that becomes a/c */, "http://08.0.0.1/",
        "http://1.2.3.4.5/", "http://h.0x/", "http://[::g]/", "http://[::1%25lo]/",
        "http://" + string(256, 'a') + "/"}},
      {"h/a/ b? //..;", {"http://h/a/%20b?%20//..;"}},
      {"h//l h/l", {"http://h//l", "http://h/%2fl"}},
      {"h/.//l h//l h/l", {"http://h/.//l"}},
      {"h/x//../l h/x/l h/l", {"http://h/x//../l"}},
      {"h/./l h/l", {"http://h/%2e%2fl"}},
      {"h/x/..;a/l h/l", {"http://h/x/..;a/l"}},
      {"h/l;a h/l", {"http://h/l;a/"}},
      {"h/..;/l h/l", {"http://h/..%3b/l"}},
      {"h/%6c h/l", {"http://h/%256c"}},
      {"h/x%2f..%2fl h/l", {"http://h/x%252f..%252fl"}},
      {"h/x/y/../l h/x/l h/l", {"http://h/x%2fy/../l"}},
      {"h/x/..\\l h/l", {"http://h/x/..\\l"}},
      {"h/x//..;/../l h/x//l h/l h/x/l", {"http://h/x//..;/../l"}},
      {"h/x/y//../l h/x/y/l h/x/l h/l", {"http://h/x%2fy//../l"}},
      {"h/;a/l h//l h/l", {"http://h/;a/l"}}};
  for (const auto &[expected, addresses] : cases) {
    const bool pathCounts = expected.find('/') != expected.npos;
    for (const string &address : addresses) {
      const ScannedHead head("GET " + address + " HTTP/1.0");
      StrictTarget target;
      const StrictFault fault = parseStrictTarget(head.first, target);
      string found = fault.status != 0 ? std::to_string(fault.status) : pathCounts ? strictUrl(target) : target.host;
      for (const string &url : urlReadings(target)) found += pathCounts ? " " + url : "";
      EXPECT_EQ(found, expected) << address;
    }
  }
}

TEST(StrictHead, IsRefusedWhenItCanBeReadInTwoWays) {
  const string host = " HTTP/1.1\r\nHost: h", post = "POST /" + host + "\r\n";
  const struct {
    string status, before;
    std::vector<string> variants;
    string after = "";
  } cases[] = {
      {"400", "GET ", {"/ HTTP/1.1", "/ HTTP/1.1\r\nHost:", "http://h/ HTTP/1.1", "/ HTTP/1.0"}},
      {"400", "GET http://h/ HTTP/1.1\r\nHost: ", {"h\r\nhost: h", "a b", "u:p@h"}},
      {"400", "GET ", {"http://u@h/", "http://h:0/", "http://h:65536/", "http://h:4294967376/", "http://h:+80/"}, host},
      {"400",
       "GET ",
       {"http:///", "://h/", "h/x", "http://h%2e%2e/", "http://h%2fx/", "http://[::1/", "http://[::1]x/", "*"},
       host},
      {"400", "", {"GET http://h\\x/", "CONNECT h:443/x", "CONNECT h:https", "CONNECT h", "CONNECT h:"}, host},
      {"400", post + "Content-Length: ", {"9223372036854775808", "18446744073709551621", "5\r\nContent-Length: 6"}},
      {"400", post + "Content-Length: ", {"5, 6", "5,", ",5", "+5", "-1", "0x5", "5 5", ""}},
      {"400", post + "Content-Length: 0\r\nTransfer-Encoding: ", {"chunked"}},
      {"400", "CONNECT h:443" + host + "\r\nContent-Length: ", {"1"}},
      {"400", "GET http://h HTTP/1.0\r\nTransfer-Encoding: ", {"chunked"}},
      {"400", "CONNECT h:443 HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: ", {"chunked"}},
      {"417", post + "Expect: ", {"magic"}},
      {"501", post + "Transfer-Encoding: ", {"xchunked", "gzip, chunked", "chunked, chunked", "chunked;a=b", ""}},
      {"501", post + "Transfer-Encoding: ", {"identity", "chunked\r\nTransfer-Encoding: identity"}},
      {"502", ok, {"Transfer-Encoding: chunked\r\nContent-Length: x", "Content-Length: 7, 8", "Transfer-Encoding: x"}},
      {"502", ok + "Transfer-Encoding: ", {"gzip", "identity, chunked", "chunked\r\nTransfer-Encoding: identity"}}};
  for (const auto &c : cases) {
    for (const string &variant : c.variants)
      EXPECT_EQ(read(c.before + variant + c.after), c.status) << c.before << variant;
  }
}

TEST(RewriteRequest, AddressesTheNextHopAndKeepsWhatIsForTheOrigin) {
  const string vias = "Via: 1.1 y\r\n", secure = "Upgrade-Insecure-Requests: 1\r\n", odd = "Content-Type:a: b\r\n";
  const string noise =
      "Host: other\r\nvia: 1.0 x\r\nTE: trailers\r\nProxy-Connection: keep-alive\r\nConnection: X-Hop, Content-Type:a,"
      "content-type, close\r\nKeep-Alive: 5\r\nX-Hop: 1\r\nX-Hop-Not: 2\r\n" +
      vias + secure + "Upgrade: h2c\r\n" + odd +
      "Content-Length: 05\r\nExpect: 100-continue\r\nContent-Length: 5, 5\r\nProxy-Authorization: Basic eA==";
  const string kept = "Connection: close\r\nvia: 1.0 x\r\nX-Hop-Not: 2\r\n" + vias + "Via: 1.0 netsift\r\n" + secure +
                      odd + "Content-Length: 5\r\n";
  const std::tuple<string, string, string> cases[] = {
      /* to the origin, to a proxy */
      {"GET http://H:80?q HTTP/1.1", "GET /?q HTTP/1.1\r\nHost: h", "GET http://h/?q HTTP/1.1\r\nHost: h"},
      {"GET https://h:80/a/ HTTP/1.0", "GET /a/ HTTP/1.0\r\nHost: h", "GET https://h:80/a/ HTTP/1.0\r\nHost: h:80"},
      {"PUT /a HTTP/1.9", "PUT /a HTTP/1.0\r\nHost: other", "PUT http://other/a HTTP/1.0\r\nHost: other"},
      {"OPTIONS http://h:8 HTTP/1.1", "OPTIONS * HTTP/1.1\r\nHost: h:8", "OPTIONS http://h:8 HTTP/1.1\r\nHost: h:8"},
      {"CONNECT h:443 HTTP/1.1", "", "CONNECT h:443 HTTP/1.1\r\nHost: h:443"},
  };
  for (const auto &[line, toOrigin, toProxy] : cases) {
    ScannedHead origin(line + "\r\n" + noise), proxy(line + "\r\n" + noise);
    StrictTarget target;
    ASSERT_EQ(parseStrictTarget(origin.first, target).status, 0);
    rewriteForProxy(proxy, target, !target.keepAlive);
    addVia(proxy, 0);
    EXPECT_EQ(proxy.text(), toProxy + "\r\n" + kept + "Proxy-Authorization: Basic eA==\r\n\r\n");
    rewriteForOrigin(origin, target, !target.keepAlive);
    addVia(origin, 0);
    if (toOrigin.empty()) continue;
    EXPECT_EQ(origin.text(), toOrigin + "\r\n" + kept + "\r\n");
  }
}

TEST(CleanResponseHead, LeavesWhatTheClientNeeds) {
  const string line = "HTTP/1.1 407 x\r\n", challenge = "Proxy-Authenticate: Basic\r\nProxy-Authenticate: Digest\r\n";
  const string fields =
      "Connection: X-Hop, Content-Encoding, Transfer-Encoding\r\nX-Hop: 1\r\nContent-Encoding: gzip\r\nTrailer: a\r\n"
      "Content-Length: 7\r\nSet-Cookie: b\r\nContent-Length: 7\r\n" +
      challenge + "Transfer-Encoding: chunked";
  ScannedHead origin(line + fields), proxy(line + fields), empty("HTTP/1.1 204 x\r\n" + fields);
  cleanResponseHead(origin, false);
  addVia(origin, 1);
  setFraming(origin, false);
  EXPECT_EQ(origin.text(),
            line + "Via: 1.1 netsift\r\nContent-Encoding: gzip\r\nContent-Length: 7\r\nSet-Cookie: b\r\n\r\n");
  cleanResponseHead(proxy, true);
  setConnection(proxy, true);
  setContentLength(proxy, 18446744073709551615u);
  EXPECT_EQ(
      proxy.text(),
      line + "Connection: close\r\nContent-Encoding: gzip\r\nTrailer: a\r\nContent-Length: 18446744073709551615\r\n" +
          "Set-Cookie: b\r\n" + challenge + "\r\n");
  cleanResponseHead(empty, false);
  EXPECT_EQ(empty.text().find("Content-Length"), string::npos);
  setFraming(empty, true);
  EXPECT_EQ(empty.text(),
            "HTTP/1.1 204 x\r\nTransfer-Encoding: chunked\r\nContent-Encoding: gzip\r\nTrailer: a\r\n"
            "Set-Cookie: b\r\n\r\n");
}

}  // namespace
