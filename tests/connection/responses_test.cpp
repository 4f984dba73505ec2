#include <sys/resource.h>
#include <sys/stat.h>

#include "cache/dbcache.h"
#include "log/debugLog.h"
#include "tests/connection/cycle_fixture.h"

using namespace std::string_literals;

TEST_F(CycleTest, keptAliveConnectionServesOneRequestAfterTheOtherUntilAnAnswerCloses) {
  const std::string big(70000, 'x');
  const std::string first = response("Content-Type: text/plain\r\n", big), second = response("", "b"),
                    head = response("", "four"), none = "HTTP/1.0 204 No\r\nContent-Length:0\r\n\r\n";
  const std::string headOnly = head.substr(0, head.size() - 4), last = response("Connection: close\r\n", "ok");
  EXPECT_EQ(serve(std::string(get) + "HEAD http://h/p HTTP/1.0\r\nHost: h\r\n\r\n" + get + get + get,
                  {first, headOnly, none, last, second}),
            first + headOnly + none + last);
  EXPECT_EQ(connections, 1);
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,CONTENT TYPE:text/plain,HOST NAME:h,REQUESTED URL:h/p"));
}

TEST_F(CycleTest, otherCodesAreRelayedAndTheConnectionGoesOn) {
  const std::string missing = response("", "nothing here", "404 Not Found"), page = response("", "ok");
  endsRequests = false; /* the relay looks at the client too */
  client.send(get);
  std::thread late([&] {
    usleep(300000);
    client.send(get);
  });
  EXPECT_EQ(serve("", {missing, response("Connection: close\r\n", "ok")}),
            missing + response("Connection: close\r\n", "ok"));
  late.join();
  EXPECT_EQ(result, 1);
}

TEST_F(CycleTest, aBodyWithoutLengthMayBeRelayedAheadOfItsHead) {
  TunnelPacketsWithoutContentLength = 1;
  endsRequests = false;
  EXPECT_EQ(serve(get, {"HTTP/1.0 200 OK\r\nConnection: close\r\n\r\nraw"}).find("raw"), 0U);
}

TEST_F(CachedTest, cleanPagesAreStoredWhenTheyAreWhole) {
  const std::string noCache = dated + "Pragma: no-cache\r\n", page = response(dated, "ok"),
                    start = "HTTP/1.1 200 OK\r\n";
  const std::tuple<int32_t, std::string, std::string, int32_t> cases[] = {
      {0, get, page, 0},
      {0, "GET http://h/p?q HTTP/1.0\r\nHost: h\r\n\r\n", page, -1},
      {0, get, response(dated, "x window.open x"), -1},
      {0, get, response(noCache, "ok"), -1},
      {0, get, response(dated, "ok", "206 Part"), -1},
      {0, get, response("Connection: close\r\n", "ok"), -1},
      {1, get, page, 0},
      {1, get, response(dated, "x window.open x"), -1},
      {1, get, response(dated, std::string(600'000, 'x') + "window.open"), -1},
      {1, "HEAD http://h/p HTTP/1.1\r\nHost: h\r\n\r\n", response(dated, ""), -1},
      {1, get, start + dated + "Content-Length: 50\r\n\r\nhalf", -1},
      {1, get, start + dated + "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n", -1}};
  for (const auto &[strict, request, answer, stored] : cases) {
    emptyCache();
    StrictHttp = strict;
    const std::string received = serve(request, {answer});
    EXPECT_TRUE(strict != 0 || received == answer) << received;
    EXPECT_EQ(verdict(), stored) << strict << answer;
  }
  emptyCache();
  StrictHttp = 0;
  const std::string opens = response("", "x longer than the next page x window.open x");
  serve("GET http://h/first HTTP/1.0\r\nHost: h\r\n\r\n"s + get, {opens, page});
  EXPECT_EQ(verdict(), -1) << "the body buffer still holds what opens windows";
  const size_t before = log.messages().size();
  serve(get, {page});
  const std::vector<std::string> lines = log.messages();
  EXPECT_EQ(std::count(lines.begin() + static_cast<ptrdiff_t>(before), lines.end(), "URL Not found in Cache."), 3)
      << "for each verdict anew";
}

TEST_F(CachedTest, knownVerdictsAreAnsweredAtOnce) {
  strcpy(reason, "left as it was");
  for (const int flag : {0, 1, 2}) {
    endsRequests = flag != 0;
    ASSERT_EQ(addto_urlcache_db("h/p", date, flag), 1);
    const std::string page = response(dated, "ok");
    const std::string answer = serve(get, {page});
    EXPECT_EQ(result, 1);
    EXPECT_EQ(answer == page, flag == 0) << answer;
    if (flag != 0) {
      EXPECT_NE(answer.find("<p>left as it was</p>h/p"), std::string::npos);
    }
    EXPECT_EQ(verdict(), flag);
  }
  EXPECT_TRUE(log.has("URL:h/p,STATUS:BLOCKED,INFECTED(In cache db)"));
  EXPECT_TRUE(log.has("URL:h/p,STATUS:BLOCKED,Offensive content.(In cache db)"));
}

TEST_F(ScanTest, infectedBodyIsHeldAndNeverStoredAsClean) {
  engine({"x: Marker FOUND\n", "x: Marker FOUND\n"});
  for (const bool isDated : {true, false}) {
    emptyCache();
    const std::string answer = serve(get, {response(isDated ? dated : "Connection: close\r\n", "bad")});
    EXPECT_EQ(answer.find("bad"), std::string::npos);
    EXPECT_NE(answer.find("<p>Content is infected\n</p>h/p"), std::string::npos) << answer;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(verdict(), isDated ? 1 : -1);
  }
}

TEST_F(ScanTest, aCacheThatCannotBeUsedHidesNoInfection) {
  const std::string path = root.path() + "/opt/Velmora/var/nscache.db", good = readFile(path), noise(5000, 'n');
  engine(std::vector<std::string>(5, "x: Marker FOUND\n"));
  for (const std::string &spoilt : {noise, good.substr(0, 64) + noise, good.substr(0, 100), std::string(), good}) {
    writeFile(path, spoilt);
    if (spoilt == good) unlink(path.c_str());
    const std::string answer = serve(get, {response(dated, "bad")});
    EXPECT_NE(answer.find("<p>Content is infected\n</p>h/p"), std::string::npos) << spoilt.size() << answer;
  }
}

TEST_F(ScanTest, cleanBodyIsScannedAsItDoublesAndDeliveredFromTheFile) {
  std::string body;
  for (int i = 0; body.size() < 300000; i++) body += std::to_string(i);
  const std::tuple<int32_t, size_t, size_t> cases[] = {
      {64, 4, 0}, /* at 64, 128 and 256 KB and at the length */
      {1, 5, 4}}; /* at every piece; a byte of zero each time that the file has nothing beyond what was sent */
  engine(std::vector<std::string>(14, "x: OK\n"));
  for (const auto &[startKiB, expectedScans, strayBytes] : cases) {
    startScanSize = startKiB;
    scans = 0;
    const std::string page = response(dated, body);
    std::string answer = serve(get, {page});
    EXPECT_EQ(answer.size(), page.size() + strayBytes) << startKiB;
    EXPECT_EQ(std::erase(answer, '\0'), strayBytes);
    EXPECT_TRUE(answer == page);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(scans, expectedScans) << startKiB;
    EXPECT_EQ(verdict(), 0);
    emptyCache();
  }
}

TEST_F(ScanTest, popupScriptGoesBehindTheHtmlTagAndIntoTheLengthOnEveryRoad) {
  engine(std::vector<std::string>(4, "x: OK\n"));
  blockPopups();
  const std::string fields = "Content-Type: text/html\r\n", script = popupblocker;
  for (const std::string rest : {"<p>x", ""}) {
    const std::string page = response(fields + "Connection: close\r\n", "<html>" + rest);
    const std::string whole = response("", "<html>" + script + rest).substr(17); /* behind the status line */
    for (const int road : {0, 1, 2, 3}) {
      virusscan = road & 1;
      StrictHttp = road >> 1;
      const std::string answer = serve(get, {page});
      EXPECT_TRUE(answer.ends_with(whole)) << road << answer;
    }
  }
  virusscan = 0;
  const std::string start = "<html" + std::string(65530, ' ') + ">";
  for (const int32_t strict : {0, 1}) { /* a send of the nothing behind the tag counts as a client that is gone */
    StrictHttp = strict;
    const std::string answer = serve(get, {response(fields + "Connection: close\r\n", start + "<p>x")});
    EXPECT_TRUE(answer.ends_with(start + script + (strict == 0 ? "" : "<p>x"))) << strict;
  }
}

TEST_F(ScanTest, enginesThatFailBlockAndTheConnectionGoesOn) {
  startScanSize = 0;
  const std::string answer =
      serve(std::string(get) + get, {response("", "held"), response("Connection: close\r\n", "held")});
  EXPECT_EQ(answer.find("held"), std::string::npos);
  EXPECT_NE(answer.rfind("<p>Anti Virus Server Not Running\n</p>"), answer.find("<p>Anti Virus")) << "both requests";
  EXPECT_EQ(result, -1);
}

/* Where the file cannot be made: tests/e2e/scan_test.py. */
TEST_F(ScanTest, bodyThatCannotBeSpooledIsNotDelivered) {
  const rlimit small{2, RLIM_INFINITY};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const std::string answer = serve(get, {response("Connection: close\r\n", "held")});
  EXPECT_EQ(answer.find("held"), std::string::npos);
  EXPECT_TRUE(log.has("error writing to virus file")) << log.text();
  EXPECT_EQ(result, -1);
}

/* What stands in the file's place hides the response from the scan on the contract's road, and blocks it on the other. */
TEST_F(ScanTest, aFileThatCannotBeClearedAway) {
  const std::string name = "scanfile." + std::to_string(getpid());
  mkdir((root.path() + "/" + name).c_str(), 0700);
  for (const int strict : {0, 1}) {
    StrictHttp = strict;
    const std::string answer = serve(get, {response("Connection: close\r\n", "held")});
    EXPECT_EQ(answer.find("held") != std::string::npos, strict == 0) << answer;
  }
  EXPECT_NE(log.text().find("error in removing existing virus file"), std::string::npos);
}

TEST_F(ScanTest, theFileIsNamedAlwaysClearedFirstAndLeftToTheHost) {
  engine({"x: OK\n"});
  for (const uint8_t scan : {0, 1}) {
    virusscan = scan;
    virfilename[0] = '\0';
    const std::string file = root.path() + "/scanfile." + std::to_string(getpid());
    writeFile(file, "of before");
    serve(get, {response("Connection: close\r\n", "text")});
    EXPECT_EQ(virfilename, file);
    EXPECT_EQ(readFile(file), scan == 0 ? "of before" : "text");
  }
}

TEST_F(ScanTest, aSkipEndsWithItsResponse) {
  engine({"x: Marker FOUND\n"});
  writeFile(root.config("viruswhite.conf"), "image/\n");
  VirWL_MimeType = 1;
  const std::string answer = serve(get, {response("Content-Type: image/png\r\n", "bad")});
  EXPECT_EQ(answer.find("bad"), std::string::npos) << "kept open, so read and scanned all the same";
  endsRequests = false;
  const std::string picture = response("Content-Type: image/png\r\nConnection: close\r\n", "PNG");
  EXPECT_EQ(serve(get, {picture}), picture);
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(log.has("Tunneling the whitelisted content type..."));
}
