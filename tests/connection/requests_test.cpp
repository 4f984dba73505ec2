#include <dlfcn.h>

#include <chrono>

#include "connection/connectionReset.h"
#include "tests/connection/cycle_fixture.h"
#include "tests/support/resolver.h"

constexpr char page[] = "HTTP/1.0 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nok";

/* A category list of one exact URL, as the loader would have made it. */
UrlList listOf(const char *entry) {
  static char *none[] = {nullptr};
  UrlList list{sym_create_table_(nullptr, 0), none, none};
  sym_create_symbol_(list.table, entry, "", nullptr, 0);
  return list;
}

/* Two categories that hold an URL each. */
void blockUrls(const char *games, const char *sport) {
  static char first[] = "Games", second[] = "Sport", *names[] = {first, second};
  static UrlList lists[2];
  lists[0] = listOf(games);
  lists[1] = listOf(sport);
  categories = lists;
  categname = names;
  numcategories = 2;
  urlcheck = 1;
}

/* Their lines and records: tests/e2e/blocks_test.py. The pattern's row is the last: it clears urlcheck for good. */
TEST_F(CycleTest, blocksEndTheCallEachWithItsResult) {
  blockUrls("h/other", "h/a b");
  static IpPattern pattern{{'1', '0', '.', '*'}, nullptr};
  BLACKIPINURL = &pattern;
  whitelist = listOf("h/x");
  block_ports = enable_whitelist = 1;
  /* Request, host, the two address checks, result and reason. */
  const std::tuple<std::string, std::string, uint8_t, uint8_t, int32_t, std::string> cases[] = {
      {"GET http://h:443/x", "h", 0, 0, 1, "access to port:443 not allowed"},
      {"CONNECT c", "c", 0, 0, 1, "access to port:80 not allowed"},
      {"GET http://11.9.8.7/x", "11.9.8.7", 1, 0, 1, "access to IP based URLS not allowed"},
      {"GET http://h/a%20b/", "h", 0, 0, -1, "Black Listed URL  in category Sport"},
      {"GET http://10.9.8.7/x", "10.9.8.7", 0, 1, 1, "access to IP based URLS not allowed"}};
  for (const auto &[target, host, blocksAddresses, blocksPatterns, expected, why] : cases) {
    blockip = blocksAddresses;
    blockedports[0] = host == "c" ? 80 : 443;
    ALLOWALLIP = blocksPatterns;
    const std::string answer = serve(target + " HTTP/1.0\r\nHost: " + host + "\r\n\r\n", {page});
    EXPECT_EQ(result, expected) << target;
    EXPECT_NE(answer.find("<p>" + why + "</p>"), std::string::npos) << target << answer;
    EXPECT_EQ(forwarded, "") << "nothing of a blocked request goes upstream";
  }
}

TEST_F(CycleTest, dotSegmentsNeitherHideNorExempt) {
  blockUrls("h/bad", "h/p/../good");
  StrictHttp = enable_whitelist = 1;
  whitelist = listOf("h/good");
  sym_create_symbol_(whitelist.table, "h/w/../bad", "", nullptr, 0);
  for (const auto &[path, blocked] :
       {std::pair{"/x/%2e./bad", true}, {"/p/../good", true}, {"/w/../bad", true}, {"/good", false}}) {
    const std::string answer = serve("GET http://h" + std::string(path) + " HTTP/1.0\r\n\r\n", {page});
    EXPECT_EQ(answer.starts_with("HTTP/1.1 403 "), blocked) << path << answer;
  }
}

TEST_F(CycleTest, callsEndEachWithItsResult) {
  blockad = tunnelmessengers = 1;
  adlist = listOf("ads/x");
  strcpy(tunnellist[0], "msg  ");
  strcpy(blockedcontent[0], "zip");
  endsRequests = false;
  const std::tuple<std::string, std::string, int32_t> cases[] = {
      {"GET http://ads/x", page, 1},
      {"GET http://msg/x", "raw close", 1},
      {"CONNECT h:443", "HTTP/1.0 200 OK\r\n\r\nraw close", 0},
      {"GET http://h/z", response("Content-Type: application/zip\r\n", "PK"), -1}};
  for (const auto &[line, answer, expected] : cases) {
    serve(line + " HTTP/1.0\r\n\r\n", {answer});
    EXPECT_EQ(result, expected) << line;
  }
}

TEST_F(CycleTest, lookUpsTrimTheHost) {
  static char entry[] = "other", *domains[] = {entry, nullptr};
  enable_whitelist = 1;
  whitelist = listOf("h/x");
  whitelist.domains = domains;
  serve("HEAD http://h/p HTTP/1.0\r\nHost: h\t\r\n\r\n", {page}); /* the road on which it outlasts the cycle */
  EXPECT_STREQ(hostname, "h");
}

TEST_F(CycleTest, uploadsAreCutBeforeTheirFile) {
  blockupload = 1;
  const std::string body = "Content-Disposition: form-data; name=\"f\"; filename=\"secret\"\r\n\r\nDATA";
  serve("POST http://h/x HTTP/1.0\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body, {page});
  EXPECT_EQ(result, 1);
  EXPECT_NE(forwarded.find("filename=\""), std::string::npos) << forwarded;
  EXPECT_EQ(forwarded.find("secret"), std::string::npos) << forwarded;
}

/* 127.0.0.1 is localhost wherever there is a hosts file. */
TEST_F(CycleTest, addressesAreLookedUpUnderTheirNameToo) {
  blockUrls("127.0.0.1/x", "localhost/x");
  const std::string answer = serve("GET http://127.0.0.1/x HTTP/1.0\r\n\r\n", {page});
  EXPECT_NE(answer.find("in category Games"), std::string::npos) << "1 and 2 make 3, which none is" << answer;
  serve("GET http://h HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n", {page}); /* the URL is shorter than the host */
  EXPECT_TRUE(log.has("resolved url is [localhost]")) << log.text();

  /* The name found last goes on being asked for, but not on the strict road. */
  static UrlList named = listOf("localhost/y");
  categories = &named;
  numcategories = enable_whitelist = 1;
  whitelist = listOf("127.0.0.1/y");
  for (const int32_t strict : {0, 1}) {
    StrictHttp = strict;
    const std::string kept = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n1.";
    const std::string both = serve(
        "GET http://127.0.0.1/y HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
        "GET http://h/z HTTP/1.1\r\nHost: h \r\n\r\n",
        {kept, page});
    EXPECT_TRUE(both.find("\r\n\r\n1.") < both.find("Listed") || strict != 0) << both;
    EXPECT_EQ(both.find("Black Listed URL") == both.npos, strict != 0) << both;
  }
}

/* With StrictHttp for its request alone. */
TEST_F(CycleTest, exemptAddressSwitchesBothChecksOffForTheConnection) {
  static IpPattern exempt{{'1', '2', '7', '.', '*'}, nullptr};
  blockip = urlcheck = 1;
  WhiteIP1 = &exempt;
  const std::string first = "GET http://127.0.0.1/ HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
  const std::string answer = serve(first + "GET http://10.0.0.1/ HTTP/1.0\r\nHost: 10.0.0.1\r\n\r\n",
                                   {"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n1.", page});
  EXPECT_NE(answer.find("\r\n\r\n1.HTTP/1.0"), std::string::npos) << answer;
  EXPECT_EQ(answer.substr(answer.size() - 2), "ok");
  EXPECT_EQ(blockip | urlcheck, 0) << "the settings themselves";

  StrictHttp = blockip = 1;
  blockUrls("h/bad", "h/worse");
  const std::string kept = "HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 2\r\n\r\n1.";
  for (const char *second : {"http://10.0.0.1/", "http://h/bad"}) {
    const std::string strict = serve(
        std::string("GET http://127.0.0.1/ HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\nGET ") + second + " HTTP/1.0\r\n\r\n",
        {kept, page});
    EXPECT_NE(strict.find("403 Forbidden"), std::string::npos) << second << strict;
  }
}

/* A sixth attempt is the last, and the error page waits for a request. */
TEST_F(CycleTest, anUpstreamProxyThatRefusesIsTriedSixTimes) {
  goThrough(1);
  EXPECT_NE(serveDirect(get).find("<e>Proxy Server Not Running</e>"), std::string::npos);
  size_t failures = 0;
  for (const std::string &line : log.messages()) failures += line.starts_with("error opening connection to proxy");
  EXPECT_EQ(failures, 5U) << "each of them followed by another attempt";
}

/* The name of every IPv6 address. */
extern "C" hostent *gethostbyaddr(const void *address, socklen_t size, int family) {
  using Ask = hostent *(const void *, socklen_t, int);
  static Ask *const real = reinterpret_cast<Ask *>(dlsym(RTLD_NEXT, "gethostbyaddr"));
  if (family != AF_INET6 || size != sizeof(in6_addr)) return real(address, size, family);
  static char name[] = "six.test", bare[sizeof(in6_addr)], *none[] = {nullptr}, *list[] = {bare, nullptr};
  static hostent entry{name, none, AF_INET6, sizeof bare, list};
  std::memcpy(bare, address, sizeof bare);
  return &entry;
}

TEST_F(CycleTest, hostsOfBothFamilies) {
  blockUrls("six.test/listed", "unused");
  StrictHttp = logip = 1;
  static IpPattern network{"[2001:db8:*", nullptr}, host{"[2001:db8::2]", nullptr};
  const ScriptedDaemon origin = answering({page});
  const std::string port = ":" + std::to_string(origin.port);
  testHosts = {{"two.test", {"127.0.0.1", "::1"}}, {"mixed.test", {"198.51.100.7", "::1"}}};
  struct Case {
    std::string target;
    uint8_t refusesLocal, refusesAddresses;
    IpPattern *refused;
    const char *expected;
  };
  const Case cases[] = {{"two.test" + port + "/", 0, 0, nullptr, "\r\n\r\nok"},
                        {"mixed.test/", 1, 0, nullptr, "leads to the filter itself"},
                        {"[::1]/", 1, 0, nullptr, "leads to the filter itself"},
                        {"[2001:db8::1]/listed", 0, 0, nullptr, "category \"Games\""},
                        {"[2001:db8::1]/", 0, 1, nullptr, "Sites may not be called by their address"},
                        {"[2001:DB8::1]/", 0, 0, &network, "Sites may not be called by their address"},
                        {"[2001:db8:0::2]/", 0, 0, &host, "Sites may not be called by their address"}};
  for (const Case &each : cases) {
    RefuseLocalAddresses = each.refusesLocal;
    blockip = each.refusesAddresses;
    BLACKIPINURL = each.refused;
    ALLOWALLIP = each.refused != nullptr;
    const std::string answer = serveDirect("GET http://" + each.target + " HTTP/1.0\r\n\r\n");
    EXPECT_NE(answer.find(each.expected), std::string::npos) << each.target << answer;
    netsift_resetState(-1);
  }
}

TEST_F(CycleTest, strictErrorsNameTheirCause) {
  StrictHttp = 1;
  for (const auto &[line, why] : {std::pair{"GET http://no-such-host.invalid/", "could not be found"},
                                  {"GET http://127.0.0.1:1/", "to 127.0.0.1, port 1: Connection refused"}}) {
    EXPECT_NE(serveDirect(line + std::string(" HTTP/1.0\r\n\r\n")).find(why), std::string::npos) << line;
    EXPECT_EQ(result, -1);
  }
}
