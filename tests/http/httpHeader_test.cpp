#include "http/httpHeader.h"

#include <climits>

#include "tests/support/support.h"

namespace {

string joined(const HeaderLine *line) {
  return line == nullptr ? "" : (line->text == nullptr ? "<none>" : line->text) + joined(line->next);
}

TEST(Header, IsReadUpToTheEmptyLineHoweverItArrives) {
  for (size_t size : {1, 8186, 8191, 20'000}) {
    const string head = "GET / HTTP/1.1\r\nA: b\n\n\r \r\nB:" + string(size, 'b') + "\r\n\r\n";
    for (size_t cut = 0; cut < head.size(); cut += cut < 40 ? 1 : 1 + head.size() / 7) {
      const SocketPair pair;
      pair.send(head.substr(0, cut));
      std::thread late([&] { pair.send(head.substr(cut) + "body\r\n\r\n"); });
      Header header;
      EXPECT_EQ(getHeader(pair.near, &header, 5), 1u) << size << ' ' << cut;
      late.join();
      EXPECT_EQ(header.lineCount, 6 + (size + 3) / 8192) << size << ' ' << cut;
      EXPECT_TRUE(header.totalBytes == head.size() && joined(header.first) == head) << size << ' ' << cut;
      destroyHeader(&header);
      char rest[16];
      EXPECT_EQ(read(pair.near, rest, sizeof rest), 8) << size << ' ' << cut;
    }
  }
}

TEST(Header, IsSentAtOnceAndNotEndedByABareLineFeed) {
  SocketPair pair;
  pair.send("part\r\n\n");
  Header header;
  EXPECT_EQ(getHeader(pair.near, &header, 1), 0u);
  EXPECT_EQ(joined(header.first), "part\r\n\n<none>");
  EXPECT_EQ(sendHeader(pair.near, &header), 7);
  EXPECT_EQ(pair.receive(), "part\r\n\n");
  pair.closeFar();
  EXPECT_EQ(sendHeader(pair.near, &header), 0); /* and no SIGPIPE */
  destroyHeader(&header);
  EXPECT_EQ(sendHeader(pair.near, &header), 0);
}

/* Each text ends at a page that cannot be read. */
TEST(Header, FieldsAreFoundByNameAndQuestionsReadNothingPastALine) {
  const string v(300, 'v');
  const std::pair<char *(*)(const HeaderLine *), std::vector<std::pair<string, string>>> values[] = {
      {getHostName, {{"hOST:   h1:8080 b", "h1:8080"}, {"Hosts: a", "<none>"}, {"Host:", ""}}},
      {getHostName, {{"Host: " + v, v.substr(0, 44)}}},
      {getContentType, {{"Content-Type: a/b;c", "a/b"}}},
      {isPragmaNoCache, {{"Pragma: no-cache, x y", ", x y"}, {"Pragma:no-cache", "<none>"}}},
      {getContentLength1, {{"Content-Length:0", ""}, {"Content-Length: 0", "<none>"}}}};
  const auto ask = [](const auto &question, const string &text) {
    const GuardedText guarded(text);
    HeaderLine line{guarded.get(), nullptr};
    return question(&line);
  };
  for (const auto &[question, answers] : values) {
    for (const auto &[text, answer] : answers) EXPECT_EQ(take(ask(question, text)), answer) << text;
  }
  const std::pair<int (*)(const HeaderLine *), std::vector<std::pair<const char *, int>>> cases[] = {
      {isPOSTRequest, {{"  POSTX /", 1}, {"post /", 0}, {"POS", 0}, {"", 0}}},
      {getResponseCode, {{"HTTP/1.0 404 Not\r\n", 404}, {" HTTP/1.0 2xx", 200 + ('x' - '0') * 11}, {"HTTP/1.0", -1}}},
      {getResponseCode,
       {{"HTTP/1.0 x\r\n", -1}, {"HTTP/1.0  200", -1}, {"HTTP/1.0 20", 200 - '0'}, {"HTTP/1.0 2", -1}}},
      {getContentLength, {{"Content-Length: 12 \r\n", 104}, {"Content-Length:2147483648", INT_MIN}, {"A", 0}}},
      {ShowAuth, {{"Host: a", 0}, {"proxy-authorization: NTLM", 1}, {"Proxy-Authorization: NTL", 2}}},
      {ShowAuth, {{"Proxy-Authorization:  NTLM", 2}, {"Proxy-Authorization:", 2}}},
      {isconnectionclosed, {{"Connection: close", 1}, {"connection: x, CLOSE", 1}, {"Connection: Close", 0}}},
      {isconnectionclosed, {{"Proxy-Connection: close", 1}, {"Proxy-Connection: CLOSE", 0}}}};
  for (const auto &[question, answers] : cases) {
    for (const auto &[text, answer] : answers) EXPECT_EQ(ask(question, text), answer) << text;
  }
}

TEST(Header, RewritesChangeTheLinesTheyMatchAndNoOther) {
  const std::tuple<void (*)(HeaderLine *), string, string> cases[] = {
      {[](HeaderLine *first) { modContentLength(first, LONG_MIN); }, "content-length:1",
       "Content-Length: -9223372036854775808\r\n"},
      {removeContentLength, "Content-Length:", ""},
      {modAcceptLanguage, "Accept-Language: de", "Accept: en-us\r\n"}, /* no longer a language */
      {removeAcceptCoding, "Accept-Encoding: gzip, deflate, br", "Accept-Encoding: identity\r\n"},
      {modAccept, "Accept: text/html", "Accept: */*\r\n"},
      {removeContentCoding, "content-encoding:gzip", "Content-Encoding: identity\r\n"},
      {removeTransferEncoding, "Transfer-Encoding: chunked", "Transfer-Encoding: identity\r\n"},
      {modHTTPver, "A ?v=HTTP/1.1x HTTP/1.1 a", "A ?v=HTTP/1.0\r\n"},
      {removePersistent, "Connection:Keep-Alive", "Connection: Close\r\n"},
      {removePersistent, "proxy-connection:keep-alive", "Proxy-Connection: Close\r\n"},
      {removePersistent, "Connection: KEEP-ALIVE", "Connection: KEEP-ALIVE\r\n"}};
  const string first = "Content-Length: of the first line", last = "Content-Length: keep-alive HTTP/1.1";
  for (const auto &[rewrite, before, after] : cases) {
    Header header = makeHeader({first, before, last});
    rewrite(before[0] == 'c' ? header.first->next : header.first);
    EXPECT_EQ(joined(header.first), first + "\r\n" + after + last + "\r\n\r\n") << before;
    destroyHeader(&header);
  }
}

}  // namespace
