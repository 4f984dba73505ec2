#include "http/httpHeader.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/support/support.h"

using namespace netsift::test;

namespace {

std::string joined(const HeaderLine *line) {
  return line == nullptr ? "" : (line->text == nullptr ? "<none>" : line->text) + joined(line->next);
}

TEST(Header, IsReadUpToTheEmptyLineAndSentAtOnce) {
  SocketPair pair;
  const std::string head = "GET /a HTTP/1.1\r\nHost: a\r\n\r\n";
  pair.send(head + "part\r\n\n");
  Header header, unfinished;
  EXPECT_EQ(getHeader(pair.near, &header, 1), 1u);
  EXPECT_TRUE(header.lineCount == 3 && header.totalBytes == head.size());
  EXPECT_EQ(sendHeader(pair.near, &header), static_cast<int>(head.size()));
  EXPECT_EQ(pair.receive(), head);
  EXPECT_EQ(getHeader(pair.near, &unfinished, 1), 0u);  // a bare LF does not end a head
  EXPECT_EQ(joined(unfinished.first), "part\r\n\n<none>");
  destroyHeader(&unfinished);
  EXPECT_EQ(sendHeader(pair.near, &unfinished), 0);
  pair.closeFar();
  EXPECT_EQ(sendHeader(pair.near, &header), 0);  // and no SIGPIPE
  destroyHeader(&header);
}

TEST(Header, FieldsAreFoundByNameAndCutAtTheirStops) {
  const std::string v(300, 'v');
  const std::tuple<std::string, char *(*)(const HeaderLine *), std::string> cases[] = {
      {"hOST:   h1:8080 b", getHostName, "h1:8080"},
      {"Hosts: a", getHostName, "second"},
      {"Host:", getHostName, ""},
      {"Host: " + v, getHostName, v.substr(0, 44)},
      {"Host: " + v.substr(45), getHostName, v.substr(45)},
      {"Content-Type: a/b;c", getContentType, "a/b"},
      {"Pragma:no-cache", isPragmaNoCache, "<none>"},
      {"Pragma: no-cache, x y", isPragmaNoCache, ", x y"},
      {"Content-Length:0", getContentLength1, ""},
      {"Content-Length: 0", getContentLength1, "<none>"}};
  for (const auto &[line, lookUp, value] : cases) {
    Header header = makeHeader({"GET / HTTP/1.1", line, "Host: second"});
    EXPECT_EQ(take(lookUp(header.first)), value) << line;
    destroyHeader(&header);
  }
}

TEST(Header, QuestionsReadNothingPastALine) {
  const std::pair<int (*)(const HeaderLine *), std::vector<std::pair<const char *, int>>> cases[] = {
      {isPOSTRequest, {{"  POSTX /", 1}, {"post /", 0}, {"POS", 0}, {"", 0}}},
      {isPROPFINDRequest, {{"PROPFIND /", 1}, {"PROPPATCH /", 0}}},
      {getResponseCode, {{"HTTP/1.0 404 Not\r\n", 404}, {" HTTP/1.0 2xx", 200 + ('x' - '0') * 11}, {"HTTP/1.0", -1}}},
      {getResponseCode, {{"HTTP/1.0 x\r\n", -1}, {"HTTP/1.0  200", -1}, {"HTTP/1.0 20", -1}}},
      {getContentLength, {{"Content-Length: 12 \r\n", 104}, {"Content-Length:2147483648", INT_MIN}, {"A", 0}}},
      {ShowAuth, {{"Host: a", 0}, {"proxy-authorization: NTLM", 1}, {"Proxy-Authorization: NTL", 2}}},
      {ShowAuth, {{"Proxy-Authorization:  NTLM", 2}, {"Proxy-Authorization:", 2}}},
      {isconnectionclosed, {{"Connection: close", 1}, {"connection: x, CLOSE", 1}, {"Connection: Close", 0}}},
      {isconnectionclosed, {{"Proxy-Connection: close", 1}, {"Proxy-Connection: CLOSE", 0}}}};
  for (const auto &[ask, answers] : cases) {
    for (const auto &[text, answer] : answers) {
      const GuardedText guarded(text);
      const HeaderLine line{guarded.get(), nullptr};
      EXPECT_EQ(ask(&line), answer) << text;
    }
  }
}

TEST(Header, RewritesChangeTheLinesTheyMatchAndNoOther) {
  const std::tuple<void (*)(HeaderLine *), std::string, std::string> cases[] = {
      {[](HeaderLine *first) { modContentLength(first, LONG_MIN); }, "content-length:1",
       "Content-Length: -9223372036854775808\r\n"},
      {removeContentLength, "Content-Length:", ""},
      {modAccept, "Accept:text/html, text/plain", "Accept: */*\r\n"},
      {modAcceptLanguage, "Accept-Language: de", "Accept: en-us\r\n"},
      {removeContentCoding, "Content-Encoding: gzip", "Content-Encoding: identity\r\n"},
      {removeAcceptCoding, "Accept-Encoding: gzip, deflate, br", "Accept-Encoding: identity\r\n"},
      {removeTransferEncoding, "Transfer-Encoding: chunked", "Transfer-Encoding: identity\r\n"},
      {modHTTPver, "A ?v=HTTP/1.1x HTTP/1.1 a", "A ?v=HTTP/1.0\r\n"},
      {removePersistent, "Connection:Keep-Alive", "Connection: Close\r\n"},
      {removePersistent, "proxy-connection:keep-alive", "Proxy-Connection: Close\r\n"},
      {removePersistent, "Connection: KEEP-ALIVE", "Connection: KEEP-ALIVE\r\n"}};
  const std::string first = "Content-Length: of the first line", last = "Content-Length: keep-alive HTTP/1.1";
  for (const auto &[rewrite, before, after] : cases) {
    Header header = makeHeader({first, before, last});
    rewrite(before[0] == 'c' ? header.first->next : header.first);
    EXPECT_EQ(joined(header.first), first + "\r\n" + after + last + "\r\n\r\n") << before;
    destroyHeader(&header);
  }
}

}  // namespace
