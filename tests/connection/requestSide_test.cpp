#include "connection/requestSide.h"

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

/* Their lines and records: tests/e2e/blocks_test.py. The pattern's row is the last: it clears urlcheck for good. */
TEST_F(CycleTest, blocksEndTheCallEachWithItsResult) {
  categname = categoryNames;
  numcategories = 2;
  static UrlList lists[] = {listOf("h/other"), listOf("h/a b")};
  categories = lists;
  static IpPattern pattern{{'1', '0', '.', '*'}, nullptr};
  BLACKIPINURL = &pattern;
  blockedports[0] = 443;
  whitelist = listOf("h/x");
  block_ports = urlcheck = enable_whitelist = 1;
  const struct {
    const char *target, *host;
    int32_t blocksAddresses, blocksPatterns, result;
    const char *why;
  } cases[] = {
      {"GET http://h:443/x", "h", 0, 0, 1, "access to port:443 not allowed"},
      {"CONNECT h", "h", 0, 0, 1, "access to port:443 not allowed"},
      {"GET http://11.9.8.7/x", "11.9.8.7", 1, 0, 1, "access to IP based URLS not allowed"},
      {"GET http://h/a%20b/", "h", 0, 0, -1, "Black Listed URL  in category Sport"},
      {"GET http://10.9.8.7/x", "10.9.8.7", 0, 1, 1, "access to IP based URLS not allowed"},
  };
  for (const auto &c : cases) {
    blockip = static_cast<uint8_t>(c.blocksAddresses);
    ALLOWALLIP = static_cast<uint8_t>(c.blocksPatterns);
    const std::string answer = serve(std::string(c.target) + " HTTP/1.0\r\nHost: " + c.host + "\r\n\r\n", {page});
    EXPECT_EQ(result, c.result) << c.target;
    EXPECT_NE(answer.find("<p>" + std::string(c.why) + "</p>"), std::string::npos) << c.target << answer;
    EXPECT_EQ(forwarded, "") << "nothing of a blocked request goes upstream";
  }
}

TEST_F(CycleTest, exemptAddressSwitchesBothChecksOffForTheConnection) {
  static IpPattern exempt{{'1', '2', '7', '.', '*'}, nullptr};
  blockip = urlcheck = 1;
  WhiteIP1 = &exempt;
  const std::string answer = serve(
      "GET http://127.0.0.1/ HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\nGET http://10.0.0.1/ HTTP/1.0\r\nHost: "
      "10.0.0.1\r\n\r\n",
      {"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n1.", page});
  EXPECT_NE(answer.find("\r\n\r\n1.HTTP/1.0"), std::string::npos) << answer;
  EXPECT_EQ(answer.substr(answer.size() - 2), "ok");
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
    EXPECT_NE(serveDirect(c.request).find(c.why), std::string::npos) << c.request;
    EXPECT_EQ(result, -1);
  }
}

}  // namespace
}  // namespace netsift::test
