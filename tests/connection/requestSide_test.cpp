#include "connection/requestSide.h"

#include <cstring>

#include "tests/connection/cycle_fixture.h"

namespace netsift::test {
namespace {

constexpr char page[] = "HTTP/1.0 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nok";

char *categoryNames[] = {const_cast<char *>("Games"), const_cast<char *>("Sport")};

/* A category list of one exact URL, as the loader would have made it. */
UrlList listOf(const char *entry) {
  static char *none[] = {nullptr};
  UrlList list{sym_create_table_(nullptr, 0), none, none};
  sym_create_symbol_(list.table, entry, "", nullptr, 0);
  return list;
}

struct BlockCase {
  const char *name;
  void (*set)();
  const char *target;
  int32_t result;
  const char *why, *line, *record;
};

const BlockCase blockCases[] = {
    {"port",
     [] {
       block_ports = enable_whitelist = 1;
       blockedports[0] = 81;
       whitelist = listOf("h/x");
     },
     "http://h:81/x", 1, "access to port:81 not allowed", "URL:h/x,STATUS:BLOCKED,Port Blocked:81",
     R"("h/x" "Port Blocked" "81")"},
    {"CONNECT without a port is to 443",
     [] {
       block_ports = 1;
       blockedports[0] = 443;
     },
     "h", 1, "access to port:443 not allowed", "URL:h,STATUS:BLOCKED,Port Blocked:443", R"("h" "Port Blocked" "443")"},
    {"address host", [] { blockip = 1; }, "http://10.9.8.7/x", 1, "access to IP based URLS not allowed",
     "URL:10.9.8.7/x,STATUS:BLOCKED,IP Blocking:access to ip based url is blocked",
     R"("10.9.8.7/x" "IP Blocking" "10.9.8.7")"},
    {"address pattern blocks",
     [] {
       static IpPattern pattern{{'1', '0', '.', '*'}, nullptr};
       ALLOWALLIP = 1;
       BLACKIPINURL = &pattern;
     },
     "http://10.9.8.7/x", 1, "access to IP based URLS not allowed",
     "URL:10.9.8.7/x,STATUS:BLOCKED,IP Blocking:access to ip based url is blocked",
     R"("10.9.8.7/x" "IP Blocking" "10.9.8.7")"},
    {"blacklist",
     [] {
       urlcheck = 1;
       numcategories = 2;
       static UrlList lists[] = {listOf("h/other"), listOf("h/a b")};
       categories = lists;
     },
     "http://h/a%20b/", -1, "Black Listed URL  in category Sport", "URL:h/a b,STATUS:BLOCKED,BlackListed:Sport",
     R"("h/a b" "Sport" "BlackListed")"},
};

class BlockTest : public CycleTest, public testing::WithParamInterface<BlockCase> {};

TEST_P(BlockTest, answersWithPageLineAndRecord) {
  const BlockCase &c = GetParam();
  logenable = logport = logip = logurl = 1;
  static char logName[] = "access.log";
  logfilename = logName;
  categname = categoryNames;
  c.set();
  Upstream upstream({page});
  const bool connects = strchr(c.target, '/') == nullptr;
  const std::string request =
      std::string(connects ? "CONNECT " : "GET ") + c.target + " HTTP/1.1\r\nHost: " + (connects ? "h" : "");
  std::string host = connects ? "" : std::string(c.target).substr(7);
  host = host.substr(0, host.find_first_of(":/"));
  const std::string answer = serve(request + host + "\r\n\r\n", upstream);
  EXPECT_EQ(result, c.result);
  EXPECT_NE(answer.find("<p>" + std::string(c.why) + "</p>"), std::string::npos) << answer;
  EXPECT_TRUE(log.has("Client IP:10.1.2.3," + std::string(c.line))) << log.text();
  EXPECT_NE(readFile(root.log("access.log")).find("\"10.1.2.3\" " + std::string(c.record) + "\n"), std::string::npos);
  EXPECT_EQ(upstream.finish(), "") << "nothing of a blocked request goes upstream";
}

INSTANTIATE_TEST_SUITE_P(Each, BlockTest, testing::ValuesIn(blockCases),
                         [](const auto &test) { return std::to_string(test.index); });

TEST_F(CycleTest, adServerGetsAnUnfinishedHeadUnlessWhitelisted) {
  blockad = 1;
  adlist = listOf("ads/x");
  Upstream upstream({page});
  EXPECT_EQ(serve("GET http://ads/x HTTP/1.1\r\nHost: ads\r\n\r\n", upstream),
            "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nPragma: no-cache\r\nContent-Length: 0\r\n");
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,URL:ads/x,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER"));
}

TEST_F(CycleTest, forwardsWithThreeRewritesAndTheBody) {
  DoNotKeepConnectionAlive = 1;
  Upstream upstream({page});
  serve(
      "POST http://h/x HTTP/1.1\r\nHost: h\r\nAccept-Encoding: gzip\r\nConnection: keep-alive\r\n"
      "Content-Length: 5\r\n\r\nabcde",
      upstream);
  EXPECT_EQ(upstream.finish(),
            "POST http://h/x HTTP/1.0\r\nHost: h\r\nAccept-Encoding: identity\r\nConnection: Close\r\n"
            "Content-Length: 5\r\n\r\nabcde");
  EXPECT_EQ(result, 1);
}

TEST_F(CycleTest, uploadIsCutBeforeItsFile) {
  blockupload = 1;
  const std::string body =
      "Content-Disposition: form-data; name=\"f\"; filename=\"secret.txt\"\r\nContent-Type: text/plain\r\n\r\nDATA";
  const std::string request = "POST http://h/x HTTP/1.0\r\nHost: h\r\nContent-Length: " + std::to_string(body.size());
  Upstream upstream({});
  const std::string answer = serve(request + "\r\n\r\n" + body, upstream);
  EXPECT_EQ(result, 1);
  EXPECT_NE(answer.find("Attachments are not allowed to this server"), std::string::npos);
  EXPECT_TRUE(log.has("Upload/Attachment is BLOCKED."));
  EXPECT_EQ(upstream.finish().find("secret"), std::string::npos);
}

TEST_F(CycleTest, exemptAddressSwitchesBothChecksOffForTheConnection) {
  static IpPattern exempt{{'1', '2', '7', '.', '*'}, nullptr};
  blockip = urlcheck = 1;
  WhiteIP1 = &exempt;
  Upstream upstream({"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n1.", page});
  const std::string answer = serve(
      "GET http://127.0.0.1/ HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\nGET http://10.0.0.1/ HTTP/1.0\r\nHost: "
      "10.0.0.1\r\n\r\n",
      upstream);
  EXPECT_NE(answer.find("\r\n\r\n1.HTTP/1.0"), std::string::npos) << answer;
  EXPECT_EQ(answer.substr(answer.size() - 2), "ok");
}

TEST_F(CycleTest, unreachableProxyIsToldAfterTheRequest) {
  int port;
  {
    Upstream gone({});
    port = gone.port;
  }
  ProxyPresent = 1;
  static char address[] = "127.0.0.1";
  proxyip = address;
  proxyport = port;
  const std::string answer = serveDirect("GET http://h/ HTTP/1.0\r\nHost: h\r\n\r\n");
  EXPECT_NE(answer.find("<e>Proxy Server Not Running</e>"), std::string::npos);
  EXPECT_EQ(result, -1);
}

TEST_F(CycleTest, messengerPassesUntouchedWithTranscript) {
  endsRequests = false;
  tunnelmessengers = 1;
  logtunnel = 1;
  strcpy(tunnellist[0], "msg.example  ");
  Upstream upstream({"raw close"});
  const std::string request = "GET http://msg.example/x HTTP/1.1\r\nHost: msg.example\r\nAccept-Encoding: x\r\n\r\n";
  EXPECT_EQ(serve(request, upstream), "raw close");
  EXPECT_EQ(result, 1);
  EXPECT_EQ(upstream.finish(), request);
  EXPECT_NE(readFile(root.log("10.1.2.3.log")).find("\nProxy:raw close"), std::string::npos);
}

TEST_F(CycleTest, unusableRequestLinesEndTheCallInSilence) {
  for (const char *line : {"GET", "GET /x", "GET / HTTP/1.0", "ABCDEFGHIJKLMNO http://h/ HTTP/1.0",
                           "GET http:/ HTTP/1.0", "GET :80 HTTP/1.0", "GET http:// HTTP/1.0", " HTTP/1.0"}) {
    Upstream upstream({page});
    reconnect();
    EXPECT_EQ(serve(std::string(line) + "\r\n\r\n", upstream), "") << line;
    EXPECT_EQ(result, -1) << line;
  }
}

TEST_F(CycleTest, strictDirectRequestReachesTheOriginInOriginForm) {
  StrictHttp = 1;
  Upstream origin({"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 1\r\n\r\n1", page});
  const std::string authority = "LocalHost:" + std::to_string(origin.port);
  const std::string answer =
      serveDirect("GET http://" + authority + "/a%00b?q HTTP/1.1\r\nHost: x\r\nProxy-Connection: keep-alive\r\n" +
                  "Proxy-Authorization: Basic eA==\r\n\r\nGET / HTTP/1.1\r\nHost: " + authority + "\r\n\r\n");
  const std::string host =
      "Via: 1.1 netsift\r\nHost: localhost:" + std::to_string(origin.port) + "\r\nConnection: keep-alive\r\n\r\n";
  EXPECT_EQ(origin.finish(), "GET /a%00b?q HTTP/1.0\r\n" + host + "GET / HTTP/1.0\r\n" + host);
  EXPECT_EQ(origin.connections, 1);
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,CONTENT TYPE:,HOST NAME:localhost,REQUESTED URL:localhost/a%00b?q"))
      << log.text();
  EXPECT_EQ(answer.substr(answer.size() - 2), "ok");
}

TEST_F(CycleTest, strictDirectConnectIsAnsweredHere) {
  endsRequests = false;
  StrictHttp = 1;
  Upstream origin({"tunneled close"});
  const std::string answer = serveDirect("CONNECT localhost:" + std::to_string(origin.port) +
                                         " HTTP/1.1\r\nHost: localhost\r\n\r\nhello\r\n\r\n");
  EXPECT_EQ(answer, "HTTP/1.1 200 Connection established\r\n\r\ntunneled close");
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,URL:localhost,STATUS:TUNNELED,HTTPS REQUEST"));
}

TEST_F(CycleTest, strictErrorsNameTheirCause) {
  StrictHttp = 1;
  const struct {
    const char *request, *why;
  } cases[] = {
      {"GET /x HTTP/1.1\r\n\r\n", "names no host"},
      {"GET http://no-such-host.invalid/ HTTP/1.1\r\nHost: x\r\n\r\n", "could not be found"},
      {"GET http://127.0.0.1:1/ HTTP/1.1\r\nHost: x\r\n\r\n", "No connection to 127.0.0.1, port 1: Connection refused"},
  };
  for (const auto &c : cases) {
    reconnect();
    EXPECT_NE(serveDirect(c.request).find(c.why), std::string::npos) << c.request;
    EXPECT_EQ(result, -1);
  }
}

}  // namespace
}  // namespace netsift::test
