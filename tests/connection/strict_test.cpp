#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <list>
#include <random>

#include "connection/connectionReset.h"
#include "content/phraseList.h"
#include "http/strictChunk.h"
#include "tests/connection/cycle_fixture.h"
#include "tests/support/coded.h"

class StrictTest : public ScanTest {
 protected:
  StrictTest() {
    StrictHttp = STRICT_HTTP;
    virusscan = 0;
    startScanSize = 0;
  }

  /* The head of a request to a site of the test's own. */
  static std::string ask(int port, const std::string &fields = "", const std::string &method = "GET") {
    return method + " http://127.0.0.1:" + std::to_string(port) + "/p HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n";
  }

  /* One answer, whatever bytes are in it. */
  std::string serveOne(const std::string &answer) {
    const ScriptedDaemon upstream([&](int fd) {
      readOnce(fd);
      say(fd, answer);
    });
    return serveDirect(ask(upstream.port));
  }

  /* A category that blocks pages with the word " vexatious ". */
  void blockWord() {
    nameCategories({"words"});
    numcategories = 200; /* of URLs: what is cleared for words must not go by them */
    allowedweight = 10;
    contentcheck = 1;
    writeFile(root.config("words.phrase"), "<\"vexatious\">10\n<zzz>1\n");
    ASSERT_EQ(makePhraseLists(), 1);
  }
};

/* The upstream has shown its version before, and the client goes on with another request. */
TEST_F(StrictTest, chunksGoOnAsChunksOrWithALengthToWhomDoesNotKnowThem) {
  const std::string big(70000, 'b'), text = "abc" + big + ".", length = "Content-Length: 70004\r\n";
  const std::string coding = "Transfer-Encoding: chunked\r\n", announced = "Trailer: T\r\n" + coding;
  const std::string sent = announced + "\r\n3;x=y\r\nabc\r\n" + asChunk(big + ".") + "0\r\nAge: 1\r\nT: x\r\n\r\n";
  const struct {
    int version;   /* of the upstream */
    int32_t looks; /* for uploads */
    std::string request, fields, text, end;
  } cases[] = {{1, 0, sent, announced, text, "0\r\nT: x\r\n\r\n"},
               {1, 1, sent, announced, text, "0\r\nT: x\r\n\r\n"},
               {0, 0, sent, length, text, ""},
               {0, 1, sent, length, text, ""},
               {1, 0, coding + "\r\n0\r\n\r\n", coding, "", "0\r\n\r\n"},
               {0, 0, coding + "\r\n0\r\n\r\n", "Content-Length: 0\r\n", "", ""},
               {1, 0, coding + "\r\n1\r\na\r\nzz\r\n\r\n", "", "", ""},
               {0, 0, coding + "\r\nzz\r\n\r\n", "", "", ""},
               {1, 1, coding + "\r\nzz\r\n\r\n", "", "", ""}};
  for (const auto &c : cases) {
    blockupload = c.looks;
    std::string received, answer;
    {
      const ScriptedDaemon upstream([&](int fd) {
        std::string got, piece;
        const auto isWhole = [&] { /* a head alone is, where no body is to follow */
                                   const bool isHead = got.find("\r\n\r\n") + 4 == got.size();
                                   return got.ends_with('.') ||
                                          (got.ends_with("\r\n\r\n") &&
                                           (!isHead || (got.find(coding) & got.find(length)) == got.npos));
        };
        while (!isWhole() && !(piece = readOnce(fd)).empty()) got += piece;
        received += got;
        if (isWhole())
          say(fd, "HTTP/1." + std::to_string(c.version) + " 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
      });
      const std::string plain = ask(upstream.port), post = ask(upstream.port, "", "POST");
      answer = serveDirect(plain + post.substr(0, post.size() - 2) + c.request + plain);
      shutdown(proxysock, SHUT_RDWR);
    }
    const std::string which = c.request.substr(0, 60) + std::to_string(c.version) + answer;
    const size_t from = std::min(received.find("POST /p HTTP/1.1"), received.size()),
                 to = received.find("GET /p", from);
    EXPECT_EQ(to == std::string::npos, c.fields.empty()) << which;
    EXPECT_EQ(answer.find("HTTP/1.1 400") != std::string::npos, c.fields.empty()) << which;
    if (c.fields.empty()) continue;
    const std::string forward = received.substr(from, to - from), body = bodyOf(forward);
    EXPECT_NE(forward.find("\r\n" + c.fields.substr(0, 10)), std::string::npos) << forward.substr(0, 300);
    for (const char *field : {"Transfer-Encoding: chunked\r\n", "Trailer: T\r\n", "Content-Length: "})
      EXPECT_EQ(forward.find(field) < forward.find("\r\n\r\n"), c.fields.find(field) != std::string::npos)
          << field << which;
    ChunkDecoder decoder;
    std::string out(80000, '\0');
    size_t used = 0, produced = body.size();
    if (c.version == 1) decodeChunks(decoder, body, used, out.data(), out.size(), produced);
    EXPECT_TRUE((c.version == 1 ? out.substr(0, produced) : body) == c.text) << which;
    EXPECT_TRUE(body.ends_with(c.end)) << which;
  }
}

TEST_F(StrictTest, requestsThatCannotBeRepeatedGoOutOnAFreshConnectionUnlessTheirLoginIsBoundToThat) {
  for (const auto &[login, expected] : {std::pair{"Basic x", 2}, {"ntlm x", 1}, {"Negotiate x", 1}}) {
    const std::string request =
        " http://h/p HTTP/1.1\r\nHost: h\r\nProxy-Authorization: " + std::string(login) + "\r\n";
    serve("GET" + request + "\r\nPOST" + request + "Content-Length: 1\r\n\r\n.",
          {response("Connection: keep-alive\r\n", "1"), response("", "2")});
    EXPECT_EQ(connections, expected) << login;
  }
}

TEST_F(StrictTest, aConnectionIsKeptToEachOfFourSites) {
  const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  const auto before = openFiles();
  std::array<int, 5> opened{};
  std::string requests, answer;
  {
    std::list<ScriptedDaemon> sites;
    for (int &count : opened) {
      sites.emplace_back([&count](int fd) {
        for (count++; readOnce(fd).ends_with("\r\n\r\n");) say(fd, "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n.");
      });
    }
    for (const int number : {0, 1, 2, 3, 0, 1, 2, 3, 4, 3, 0}) requests += ask(std::next(sites.begin(), number)->port);
    answer = serveDirect(requests);
    close(proxysock);
  }
  EXPECT_EQ(opened, (std::array<int, 5>{2, 1, 1, 1, 1}));
  EXPECT_TRUE(answer.ends_with("\r\n\r\n.") && result == -1) << answer;
  EXPECT_EQ(openFiles(), before);
}

size_t occurrences(const std::string &text, std::string_view what) {
  size_t found = 0;
  for (size_t at = 0; (at = text.find(what, at)) != text.npos; at++) found++;
  return found;
}

/* How many connections two clients cost, one after the other, by what the first asks and is answered. */
TEST_F(StrictTest, aSilentConnectionIsKeptForTheNextClientUnlessItIsPersonal) {
  const std::string good = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n.", close = "Connection: close\r\n";
  const std::tuple<int, std::string, std::string, int> cases[] = {
      {15, "", good, 1},
      {15, close, good, 1},
      {0, close, good, 2},
      {1, "", good, 2}, /* that is over when the next one comes */
      {15, "Authorization: Basic eDp5\r\n", good, 2},
      {15, "", "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n", 2},
      {15, "", good + "HTTP/1.1 200 OK\r\n", 2},
      {15, "", "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 1\r\n\r\n.", 2}};
  for (const auto &[seconds, fields, first, count] : cases) {
    KeepUpstreamSeconds = seconds;
    int opened = 0;
    std::string answers;
    {
      const ScriptedDaemon site([&, &first = first](int fd) {
        for (opened++; !readOnce(fd).empty();) say(fd, answers.empty() ? first : good);
      });
      answers = serveDirect(ask(site.port, fields));
      if (seconds == 1) usleep(1'010'000);
      answers += serveDirect(ask(site.port));
      netsift_releaseUpstreams();
    }
    EXPECT_EQ(opened, count) << seconds << fields << first;
    EXPECT_TRUE(answers.find("HTTP/1.1 200", 1) != std::string::npos && answers.ends_with("\r\n\r\n.")) << answers;
  }
}

/* The request that carries it fails on a kept connection and goes out on a new one. */
TEST_F(StrictTest, aLoginThatWasSentAgainIsNotTheNextClientsEither) {
  KeepUpstreamSeconds = 15;
  const std::string good = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n.";
  int opened = 0;
  std::string answers;
  {
    const ScriptedDaemon site([&](int fd) {
      readOnce(fd);
      say(fd, good);
      if (opened++ > 0 && !readOnce(fd).empty()) say(fd, good);
    });
    for (const char *login : {"", "Authorization: Negotiate x\r\n", ""}) {
      answers = serveDirect(ask(site.port, login));
      EXPECT_TRUE(answers.ends_with("\r\n\r\n.")) << login << answers;
    }
    netsift_releaseUpstreams();
  }
  EXPECT_EQ(opened, 3);
}

/* What a site does with a second request on the connection of the first, then with that on a new one. */
TEST_F(StrictTest, aKeptConnectionThatFailsIsTriedOnceMoreAnewBeforeAnyAnswer) {
  const std::string good = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n.", bad = "HTTP/1.1 502 Bad Gateway";
  const std::string hints = "HTTP/1.1 103 Early Hints\r\n\r\n", login = "Authorization: NTLM x\r\n";
  const struct {
    std::string method, fields, again, anew, expected;
    int opened;
    size_t asked;
  } cases[] = {{"GET", "", "", good, good, 2, 3},
               {"GET", "", "", "", bad, 2, 3},
               {"GET", "", "HTTP/1.1 2", good, bad, 1, 2},
               {"GET", "", hints, good, bad, 1, 2},
               {"GET", "", "HTTP/1.1 200 OK\r\n\r\n", good, "HTTP/1.1 200", 1, 2},
               {"POST", "", "", good, good, 2, 2},
               {"PUT", "", "", good, good, 2, 2},
               {"PUT", "", "", "", bad, 2, 2},
               {"DELETE", "", "", good, good, 2, 2},
               {"POST", login, "", good, bad, 1, 2}};
  for (const auto &c : cases) {
    int opened = 0;
    std::string answer, heard;
    {
      const ScriptedDaemon site([&](int fd) {
        opened++;
        heard += readOnce(fd);
        say(fd, opened == 1 ? good : c.anew);
        const std::string second = opened == 1 ? readOnce(fd) : "";
        if (!second.empty()) say(fd, c.again);
        heard += second;
      });
      const std::string body = c.method == "PUT" || c.method == "DELETE" ? "b" : "",
                        length = c.method == "GET" ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
      answer = serveDirect(ask(site.port, login) + ask(site.port, c.fields + length, c.method) + body);
      shutdown(proxysock, SHUT_RDWR);
    }
    const std::string which = c.method + c.fields + c.again, later = answer.substr(answer.find("HTTP/1.1", 1));
    EXPECT_EQ(answer.find("HTTP/1.1 200 OK"), 0U);
    EXPECT_NE(later.find(c.expected.substr(0, 12)), std::string::npos) << which << answer;
    EXPECT_EQ(opened, c.opened) << which;
    EXPECT_EQ(occurrences(heard, "Host: "), c.asked) << which;
  }
}

/* Nobody's is what comes behind an answer, or behind one to a body that the next hop may have taken for requests. */
TEST_F(StrictTest, aConnectionIsKeptWhereTheEndsOfBodyAndAnswerWereSeen) {
  const std::string chunks = "Transfer-Encoding: chunked\r\n\r\n1\r\n.\r\n0\r\n\r\n",
                    length = "Content-Length: 1\r\n\r\n.", kept = "1.0 200 OK\r\nConnection: keep-alive\r\n";
  const struct {
    bool isProxy;
    std::string body, answer; /* of a POST, or of a GET where there is none */
    int opened;
  } cases[] = {{true, chunks, "1.1 200 OK\r\n" + length, 1},
               {true, chunks, kept + length, 2},
               {true, length, kept + length, 1},
               {false, length, "1.1 200 OK\r\n" + length, 2},
               {false, "", "1.1 200 OK\r\n" + chunks, 1},
               {false, "", "1.1 200 OK\r\n" + chunks + "H", 2},
               {false, "", "1.1 200 OK\r\n" + length + "H", 2},
               {false, "", "1.1 200 OK\r\nContent-Length: 9\r\n" + chunks, 2}};
  for (const auto &c : cases) {
    int opened = 0;
    {
      const ScriptedDaemon hop([&](int fd) {
        opened++;
        for (std::string got, piece; !(piece = readOnce(fd)).empty();) {
          got += piece;
          if (!got.ends_with(got.starts_with("GET") ? "\r\n\r\n" : c.body.substr(c.body.size() - 5))) continue;
          say(fd, "HTTP/" + c.answer);
          got.clear();
        }
      });
      if (c.isProxy) goThrough(hop.port);
      std::string first = ask(hop.port, "", c.body.empty() ? "GET" : "POST");
      if (!c.body.empty()) first.replace(first.size() - 2, 2, c.body);
      const std::string answer = serveDirect(first + ask(hop.port));
      EXPECT_EQ(occurrences(answer, "HTTP/1.1 200 OK"), 2U) << c.body << c.answer << answer;
      shutdown(proxysock, SHUT_RDWR);
      ProxyPresent = 0;
    }
    EXPECT_EQ(opened, c.opened) << c.body << c.answer;
  }
}

/* Each with a length, and in chunks of seven bytes, whose borders fall everywhere. */
TEST_F(StrictTest, uploadsAreFoundWhateverTheyAreCodedInAndBeforeAnythingGoesUpstream) {
  blockupload = 1;
  const std::string part = "content-disposition: form-data; name=", file = part + "f; filename=x\r\n\r\n",
                    field = "Content-Disposition: form-data; name=f\r\n\r\n", gzip = "Content-Encoding: gzip\r\n",
                    form = "Content-Type: Multipart/Form-Data; boundary=b", big(65536 - 40, '-');
  /* The longest field that is looked at, beginning where the second window holds it and the first lacks its end. */
  const std::string early(65536 - 16403, '-'),
      last = "\"; filename=x", longest = part + '"' + std::string(16404 - part.size() - 1 - last.size(), 'n') + last;
  std::string wide, noise;
  for (const char c : file) wide += std::string(1, c) + '\0';
  for (unsigned i = 0; i < 40000; i++) noise += static_cast<char>(' ' + (i * 2654435761U >> 26));
  const std::string whole = compressed(noise + field, 31);
  const std::tuple<std::string, std::string, std::string, bool> cases[] = {
      {"", "", big + "Content-Disposition: form-data; name=\"f\"; filename=\"secret\"\r\n\r\nDATA", false},
      {"", "", big + "Content-Disposition: form-data; name=\"f\"; filament=\"secret\"\r\n\r\nDATA", true},
      {"", "", early + longest + "\r\n\r\nDATA", false},
      {"", "", "content-disposition:form-data;  filename*=utf-8''x\r\n\r\nDATA", false},
      {"", "", part + '"' + std::string(16400, 'n') + "\"\r\n\r\nDATA", false},
      {"", "", "{\"note\": \"no Content-Disposition here\"" + std::string(20000, ' ') + "}", true},
      {"", "", "content-disposition: form-data; filename*0=x\r\n\r\nDATA", false},
      {"", "", "Content-Disposition: form-data; a=1;\r\n FileName = x\r\n\r\n", false},
      {":8100", "", file, false},
      {"", "", std::string(65535, '-') + wide, false}, /* its first zero byte in another piece than its first letter */
      {"", "", std::string(100000, '-') + std::string(1, '\0') + wide, false},
      {"", gzip, compressed(noise + file, 31), false},
      {"", gzip, compressed(noise, 31) + compressed(wide, 31), false},
      {"", gzip, whole, true},
      {"", gzip, whole.substr(0, whole.size() - 20), false},
      {"", gzip, file, false},
      {"", gzip, compressed(std::string(4 << 20, 'a'), 31), false},
      {"", "Content-Encoding: deflate\r\n", compressed(file, 15), false},
      {"", "Content-Encoding: compress\r\n", "?", false},
      {"", "Content-Encoding: br\r\n", "?", true},  /* a stream of no bytes, */
      {"", "Content-Encoding: br\r\n", "/", false}, /* and the beginning of one */
      {"", form + "\r\n", field, true},
      {"", form + "\r\n", "--b\r\n\xC3\x96", false},
      {"", form + "; Charset = \"UTF-8\"\r\n", field, true},
      {"", form + ";charset=ibm037\r\n", field, false},
      {"", "Content-Type: text/plain; charset=utf-16\r\n", "x", true},
      {"", "Content-Type: text/plain, multipart/form-data\r\n", "x", false}};
  for (const auto &[port, fields, body, allowed] : cases) {
    const std::string head = "POST http://h" + port + "/x HTTP/1.1\r\nHost: h\r\n" + fields;
    const std::string which = port + fields + body.substr(0, 60), status = allowed ? "HTTP/1.1 200 " : "HTTP/1.1 403 ";
    const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    EXPECT_EQ(serve(head + length + body, {response("", "ok")}).find(status), 0U) << which;
    EXPECT_TRUE(allowed ? bodyOf(forwarded) == body : forwarded.empty()) << which;
    std::string chunks;
    for (size_t at = 0; at < body.size(); at += 7) chunks += asChunk(body.substr(at, 7));
    const std::string coded = "Transfer-Encoding: chunked\r\n\r\n" + chunks + "0\r\n\r\n";
    EXPECT_EQ(serve(head + coded, {response("", "ok")}).find(status), 0U) << which;
    EXPECT_EQ(forwarded.empty(), !allowed) << which;
  }
}

/* An engine that is not asked again says that the verdict was known. */
TEST_F(StrictTest, aVerdictIsThatOfOnePortAndScheme) {
  virusscan = 1;
  startScanSize = 64;
  engine({"OK", "OK", "OK"});
  const std::string text = response(dated, "text");
  const std::pair<const char *, size_t> cases[] = {{"http://h", 1},     {"http://h:80", 1}, {"http://h:81", 2},
                                                   {"https://h:80", 3}, {"http://h:81", 3}, {"https://h:80", 3}};
  for (const auto &[origin, asked] : cases) {
    serve("GET " + std::string(origin) + "/p HTTP/1.1\r\nHost: h\r\n\r\n", {text});
    EXPECT_EQ(scans, asked) << origin;
  }
  EXPECT_EQ(if_url_scanned_check_ok("h:81/p", date) + if_url_scanned_check_ok("https://h:80/p", date), 0);
}

TEST_F(StrictTest, textIsJudgedWhateverItCameIn) {
  blockWord();
  std::strcpy(blockedcontent[0], "X-Program");
  const std::string page = "<p>this is a vexatious page</p>", plain = "<p>a fine page</p>";
  const std::string type = "Content-Type: text/html\r\n", gzip = type + "Content-Encoding: gzip\r\n";
  const std::string brotli = type + "Content-Encoding: br\r\n", start = "HTTP/1.1 200 OK\r\n" + type;
  const std::string chunked = start + "Transfer-Encoding: chunked\r\n\r\n";
  const std::tuple<std::string, int32_t, std::string> cases[] = {
      {response(type, page), 1, "403 Forbidden"},
      {response(type, page, "404 Not Found"), 1, "403 Forbidden"},
      {response(gzip, compressed(page, 31)), 1, "403 Forbidden"},
      {response(brotli, coded(Coding::brotli, page)), 1, "403 Forbidden"},
      {response(type + "Content-Encoding: zstd\r\n", coded(Coding::zstd, page)), 1, "403 Forbidden"},
      {response(gzip + brotli, coded(Coding::brotli, compressed(page, 31))), 1, "403 Forbidden"},
      {response(gzip, compressed(plain, 31) + page), 1, "403 Forbidden"},
      {response(brotli, page), 1, "403 Forbidden"},
      {response(type + "Content-Encoding: br, gzip, br\r\n", page), 1, "403 Forbidden"},
      {response(brotli, page), 1 | STRICT_PASS_UNJUDGED, page},
      {response("Content-Type: image/png\r\nContent-Encoding: br\r\n", page), 1, page},
      {response("Content-Type: Text/HTML\r\n", page), 1, "403 Forbidden"},
      {response("", page), 1, "403 Forbidden"},
      {response("Content-Type: application/x-program\r\n", "MZ"), 1, "403 Forbidden"}, /* in any case of letters */
      {response("Content-Type: text/plain\r\n", "x-program"), 1, "x-program"},
      {response("Content-Type: image/png, text/html\r\n", page), 1, "502 Bad Gateway"},
      {start + "Content-Length: 31\r\n\r\n<p>this is a vexa\1tious page</p>", 1, "<p>this is a vexa"},
      {chunked + "12\r\n<p>this is a vexat\r\nd\r\nious page</p>\r\n0\r\n\r\n", 1, "403 Forbidden"}};
  for (const auto &[sent, strict, expected] : cases) {
    StrictHttp = strict;
    const std::string answer = serve(get, {sent});
    EXPECT_NE(answer.find(expected), std::string::npos) << sent << answer;
    EXPECT_EQ(answer.find("tious"), expected == page ? answer.find(page) + 17 : std::string::npos) << answer;
  }
}

/* A piece that came slowly is judged again with what follows it, and its words count again, once each or not. */
TEST_F(StrictTest, aPageThatGrowsIsWeighedAnewEachTime) {
  blockWord();
  writeFile(root.config("words.phrase"), "<first>10\n<second>10\n<zzz>1\n");
  ASSERT_EQ(makePhraseLists(), 1);
  uniqueoccur = 1;
  allowedweight = 15;
  const std::string answer = serve(
      get, {"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\nX: close\r\n\r\n<p>the first \1and the second one</p>"});
  EXPECT_EQ(bodyOf(answer), "d\r\n<p>the first \r\n");
}

/* Also when it is scanned, with what the client would pass over; and cut where the text is. */
TEST_F(StrictTest, whatWasJudgedIsDeliveredAsItCame) {
  blockWord();
  startScanSize = 64;
  std::string noise, late;
  for (unsigned i = 0; i < 40000; i++) noise += std::to_string(i * 2654435761u);
  late = noise + " vexatious page";
  for (const Coding coding : {Coding::gzip, Coding::deflate, Coding::brotli, Coding::zstd}) {
    const char *name = std::array{"", "gzip", "deflate", "br", "zstd"}[static_cast<size_t>(coding)];
    const std::string fields = "Content-Type: text/plain\r\nETag: x\r\nContent-Encoding: " + std::string(name) + "\r\n";
    const std::string body = coded(coding, noise) + "rest", lateBody = coded(coding, late);
    for (const int scanned : {0, 1}) {
      virusscan = scanned;
      engine(std::vector<std::string>(12, "OK"));
      const std::string whole = serveOne(response(fields, body));
      const std::string cut = serveOne(response(fields, lateBody));
      engine({"FOUND"});
      const std::string infected = serveOne(response(fields, body));
      stopEngine();
      EXPECT_TRUE(bodyOf(whole) == body) << name << scanned << bodyOf(whole).size() << " of " << body.size();
      EXPECT_NE(whole.find("\r\n" + fields), std::string::npos) << whole.substr(0, 300);
      EXPECT_TRUE(lateBody.starts_with(bodyOf(cut)) && bodyOf(cut).size() + 16 < lateBody.size()) << name << scanned;
      EXPECT_EQ(infected.starts_with("HTTP/1.1 403"), scanned != 0) << name;
    }
  }
}

/* Stored blocks of no bytes, so many of a deflate stream. */
std::string silence(size_t size) {
  std::string blocks;
  while (blocks.size() < size) blocks += std::string("\0\0\0\xFF\xFF", 5);
  return blocks;
}

/* A coded stream may go on without end and say nothing; what comes then is looked at as the page's start. */
TEST_F(StrictTest, codedBytesWithoutTextAreNotHeldForEver) {
  blockWord();
  blockPopups();
  testforratings = rsacenable = 1;
  const std::string type = "Content-Type: text/html\r\nContent-Encoding: deflate\r\n", filler = silence(600'000);
  const auto ask = [&](const std::string &text) { return serveOne(response(type, filler + compressed(text, -15))); };
  blockpopup = 0;
  EXPECT_TRUE(bodyOf(ask("<p>text")) == filler + compressed("<p>text", -15));
  const std::string rated = R"(<META><head><meta name="pics-label" content='(x "rsac" r (v 4))'></head>)";
  EXPECT_EQ(bodyOf(ask(rated)).find("rated"), std::string::npos);
  blockpopup = 1;
  const std::string script(popupblocker, static_cast<size_t>(popuplen)), answer = ask("<html>x");
  EXPECT_NE(bodyOf(answer).find(script), std::string::npos) << answer.substr(0, 500);
  EXPECT_EQ(answer.find("Content-Encoding"), std::string::npos);
}

/* Where coded bytes are kept beside the scan file, and there is no room or no end of them, that is a scan that failed. */
TEST_F(StrictTest, whatCannotBeCollectedIsNotScanned) {
  virusscan = 1;
  startScanSize = 0;
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const std::string quiet = "Content-Encoding: deflate\r\n",
                    bomb = "Content-Type: text/html\r\nContent-Encoding: br\r\n",
                    packed = coded(Coding::brotli, std::string(8 << 20, 'a')), end = compressed("text", -15);
  const std::tuple<rlim_t, std::string, std::string> cases[] = {{300'000, quiet, silence(600'000) + end},
                                                                {before.rlim_max, quiet, silence(5 << 20) + end},
                                                                {before.rlim_max, bomb, packed}};
  for (const auto &[room, fields, body] : cases) {
    for (const int32_t passes : {0, int32_t{STRICT_PASS_UNSCANNED}}) {
      for (const bool judges : {false, true}) {
        contentcheck = 0;
        if (judges) blockWord();
        StrictHttp = STRICT_HTTP | STRICT_PASS_UNJUDGED | passes;
        engine({"OK"});
        const rlimit limit{room, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        const std::string answer = serveOne(response(fields, body));
        setrlimit(RLIMIT_FSIZE, &before);
        stopEngine();
        EXPECT_EQ(answer.starts_with("HTTP/1.1 403"), passes == 0) << fields << body.size() << answer.substr(0, 300);
        EXPECT_EQ(bodyOf(answer) == body, passes != 0) << fields << body.size() << judges;
        EXPECT_EQ(scans, 0U);
      }
    }
  }
  std::string noise;
  for (std::mt19937 random; noise.size() < 5 << 20;) noise += static_cast<char>(random());
  StrictHttp = STRICT_HTTP;
  contentcheck = 0;
  engine({"OK"});
  const std::string large = compressed(noise, -15);
  EXPECT_TRUE(bodyOf(serveOne(response(quiet, large))) == large) << "which is no more than its text";
}

/* What only an end there would condemn waits for what follows: neither that nor an end alone is passed over. */
TEST_F(StrictTest, halfAWordAtTheEndOfAPieceIsHeldBack) {
  ContentMatch = CONTENT_WORDS;
  std::strcpy(JudgedTypes[0], "text/html");
  blockWord();
  startScanSize = 0;
  const std::string word = " vexatious", full = std::string(65536 - word.size(), '.') + word, rest = "ly so";
  const std::string again = rest + std::string(65536 - word.size() - rest.size(), '.') + word;
  const std::pair<std::string, bool> cases[] = {{full, false},
                                                {full + rest, true},
                                                {full + "<b>" + rest, true},
                                                {full + again + rest, true},
                                                {full + again, false},
                                                {full + rest + word, false},
                                                {full + "<!--" + std::string(300'000, '.') + "-->" + rest, false},
                                                {word + "\1" + rest, true}};
  const auto expect = [&](const std::string &fields, const std::string &body, bool passes) {
    const std::string sent = "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n" + fields + "\r\n" + body;
    for (const int scanned : {0, 1}) {
      virusscan = scanned;
      engine({"OK"});
      const bool pauses = body.starts_with(word) && scanned == 0;
      const std::string answer = pauses ? serve(get, {sent}) : serveOne(sent);
      ProxyPresent = 0;
      stopEngine();
      const std::string which = body.substr(0, 20) + std::to_string(body.size()) + fields + std::to_string(scanned);
      EXPECT_EQ(answer.ends_with("\r\n0\r\n\r\n"), passes) << which << answer.substr(0, 300);
      EXPECT_TRUE(!passes || answer.size() > body.size()) << which;
    }
  };
  const std::string gzip = "Content-Encoding: gzip\r\n", none = compressed("", 31);
  for (const auto &[page, passes] : cases) {
    expect("X: close\r\n", page, passes);
    expect(gzip, compressed(page, 31), passes);
  }
  std::string quiet = compressed(full, 31); /* then streams of no bytes */
  while (quiet.size() < 300'000) quiet += none;
  expect(gzip, quiet + compressed(rest, 31), false);
  StrictHttp |= STRICT_PASS_UNJUDGED | STRICT_PASS_UNSCANNED; /* and beyond bounds behind it */
  const std::string large((1 << 20) - word.size(), '.');
  expect(gzip, compressed(large + word + rest + large, 31), true);
}

TEST_F(StrictTest, whatDescribedTheBytesIsTakenOutWithThem) {
  const std::string described = "Content-Type: text/html\r\nETag: \"x\"\r\nDigest: x\r\nContent-MD5: x\r\n",
                    page = "<html>x";
  const std::string coded = described + "Content-Encoding: gzip\r\n", packed = compressed(page, 31),
                    plain = compressed("no page", 31);
  const std::tuple<bool, uint8_t, std::string, bool> cases[] = {{false, 0, response(described, page), true},
                                                                {true, 0, response(coded, packed), true},
                                                                {false, 1, response(described, page), false},
                                                                {false, 1, response(coded, packed), false},
                                                                {true, 1, response(coded, packed), false},
                                                                {false, 1, response(coded, plain), true},
                                                                {false, 1, response(coded, compressed("", 31)), true}};
  blockPopups();
  for (const auto &[judges, inserts, sent, kept] : cases) {
    testforratings = judges ? 1 : 0;
    blockpopup = inserts;
    const std::string answer = serve(get, {sent});
    for (const char *field : {"ETag:", "Digest:", "Content-MD5:"}) {
      EXPECT_EQ(answer.find(field) != std::string::npos, kept) << field << answer;
    }
    const bool unpacked = sent.find("gzip") != sent.npos && !kept;
    EXPECT_EQ(answer.find("Vary: Accept-Encoding\r\n") != answer.npos, unpacked) << answer;
    EXPECT_EQ(answer.find("\r\n<html>") != answer.npos, !kept || sent.find("gzip") == sent.npos) << answer;
    EXPECT_EQ(answer.find("gzip") != answer.npos, kept && sent.find("gzip") != sent.npos) << answer;
  }
}

TEST_F(StrictTest, aClientThatHasLeftIsNotWaitedFor) {
  PROXY_TIMEOUT = 60;
  virusscan = 1;
  endsRequests = false;
  engine({"x: OK\n"});
  const std::string start = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nsome";
  for (const std::string &answer : {std::string(), start}) {
    std::atomic<bool> over = false;
    ScriptedDaemon upstream([&](int fd) {
      readOnce(fd);
      say(fd, answer);
      shutdown(client.far, SHUT_RDWR);
      while (!over) usleep(1000);
    });
    goThrough(upstream.port);
    const time_t begun = time(nullptr);
    serveDirect(get);
    over = true;
    EXPECT_LT(time(nullptr) - begun, 30) << answer;
    EXPECT_EQ(result, -1);
  }
}

TEST_F(StrictTest, onlyWhatAScanCoveredReachesTheClient) {
  virusscan = 1;
  startScanSize = 64;
  const std::string body(200000, 'b');
  /* What is delivered of the body (the block page instead when 0) and stored. */
  const std::tuple<std::vector<std::string>, int32_t, size_t, int32_t> cases[] = {
      {{"OK", "OK", "OK", "OK"}, 1, 200000, 0},
      {{"FOUND"}, 1, 0, 1},
      {{"OK", "FOUND"}, 1, 65536, 1},
      {{"ERROR"}, 1, 0, -1},
      {{"ERROR"}, 1 | STRICT_PASS_UNSCANNED, 200000, -1}};
  for (const auto &[verdicts, strict, delivered, stored] : cases) {
    emptyCache();
    StrictHttp = strict;
    engine(verdicts);
    const std::string answer = serve(get, {response(dated, body)});
    stopEngine();
    EXPECT_EQ(answer.find("200 OK") != std::string::npos, delivered != 0);
    EXPECT_TRUE(delivered == 0 || bodyOf(answer).size() == delivered) << bodyOf(answer).size();
    EXPECT_EQ(verdict(), stored) << verdicts[0] << delivered;
  }
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,URL:h/p,STATUS:BLOCKED,unscanned"));
  EXPECT_TRUE(log.has("Client IP:10.1.2.3,URL:h/p,STATUS:DELIVERED,unscanned"));
}

TEST_F(StrictTest, aScanFileThatWasExchangedIsNotJudgedInItsPlace) {
  virusscan = 1;
  startScanSize = 64;
  size_t asked = 0;
  std::string answer;
  {
    const ScriptedDaemon engine(root, "vlcavd.sock", [&](int fd) {
      readOnce(fd);
      asked++;
      writeFile(root.config("other"), std::string(200000, 'o'));
      std::filesystem::rename(root.config("other"), virfilename);
      say(fd, "x: OK\n");
    });
    answer = serve(get, {response("", std::string(200000, 'b'))});
  }
  EXPECT_EQ(asked, 1U);
  EXPECT_EQ(bodyOf(answer), std::string(65536, 'b')) << "what the first scan covered";
}
