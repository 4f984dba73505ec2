#include "http/requestUrl.h"

#include <gtest/gtest.h>

#include <cstring>

#include "state/connection.h"
#include "state/settings.h"
#include "tests/support/support.h"

using namespace netsift::test;
using std::string;

/* "method|url|host|port" of a line whose text ends at a page that cannot be read, with a Host field after it. */
static string parse(const string &text, const char *hostField = nullptr) {
  GuardedText guarded(text), fieldText(string("hOST: ") + (hostField == nullptr ? "" : hostField) + "\r\n");
  HeaderLine field{fieldText.get(), nullptr}, line{guarded.get(), hostField == nullptr ? nullptr : &field};
  unsigned port = 7;
  char *host = nullptr;
  const string found = take(getURL(&line, &port, &host));
  return string(request) + "|" + found + "|" + take(host) + "|" + std::to_string(port);
}

TEST(GetUrl, NormalisesTargetsAndRefusesUnusableLines) {
  const char *const cases[][3] = {
      {"GET http://h.a/b/ HTTP/1.1\r\n", nullptr, "GET|h.a/b|h.a|80"},
      {"GET https://h:8080//a//x// HTTP/1.1\r\n", nullptr, "GET|h//a//x/|h|8080"},
      {"CONNECT h:443 HTTP/1.0", nullptr, "CONNECT|h|h|443"},
      {"GET   http://h:8x/a b c   HTTP/1.1", nullptr, "GET|h/a b c|h|152"},
      {"GET http://h:4294967376 HTTP/1.1", nullptr, "GET|h|h|80"},
      {"GET 2345678/bc HTTP/1.1", nullptr, "GET|c|c|80"},
      {"GET 12345678/bc HTTP/1.1", nullptr, "GET|12345678/bc|12345678|80"},
      {"GET http:/ HTTP/1.1", nullptr, "GET|||80"},
      {"GET h HTTP/1.1", nullptr, "GET|h|h|80"},  // the version's "/" is not the target's
      {"GET /index.html HTTP/1.1\r\n", "h:81", "GET|h/index.htm|h|81"},
      {"get /a/ http/1.0\n", "h", "get|h/a|h|80"},
      {"VERSIONCONTROL / HTTP/1.1", "h", "VERSIONCONTROL|h|h|80"},
      {"FIFTEENLETTERS1 h HTTP/1.1", nullptr, "|<none>|<none>|7"},
      {"GET  HTTP/1.1\r\n", nullptr, "GET|<none>|<none>|7"},
      {"GET /a Http/1.1\r\n", "h", "GET|<none>|<none>|7"},
      {"GET /a HTTP/1.1\r\n", nullptr, "GET|<none>|<none>|7"},
  };
  for (const auto &[line, hostField, expected] : cases) {
    request[0] = '\0';
    EXPECT_EQ(parse(line, hostField), expected) << line;
  }
  const string path = "h/" + string(498, 'p'), host(44, 'h');
  EXPECT_EQ(parse("GET http://" + path + "/ HTTP/1.1"), "GET|" + path + "|h|80");
  EXPECT_EQ(parse("GET http://" + path + "x HTTP/1.1"), "GET|" + path + "...|h|80");
  EXPECT_EQ(parse("GET http://" + string(300, 'h') + ":8/x HTTP/1.1"), "GET|" + host + "/x|" + host + "|8");
}

TEST(UrlHelpers, TakeTextsApart) {
  EXPECT_EQ(take(decodeURL(GuardedText("%2Fb%zz%c3%BC%4").get())), "/b%zz\xc3\xbc%4");
  const std::pair<const char *, const char *> dates[] = {{"last-modified:  X \r\n", " X "}, {"Last-Modified: X", ""}};
  for (const auto &[text, value] : dates) {
    GuardedText guarded(text);
    HeaderLine line{guarded.get(), nullptr}, first{nullptr, &line};
    EXPECT_EQ(take(getModificationTime(&first)), value) << text;
  }
  char padded[] = " \t\xa0 a b\v\r\n", blank[] = " \n";
  EXPECT_EQ(string(Trim(padded)) + Trim(blank), "\xa0 a b");
  EXPECT_EQ(isAnIP("host9") * 4 + isAnIP("1.2.3.4.") * 2 + isAnIP(""), 4);
}

TEST(UrlHelpers, BannedContentTypesEndAtTheHundredthEntry) {
  const string last(100, 'y');
  std::memset(blockedcontent, 'y', sizeof blockedcontent);  // the hundredth entry is followed by no NUL
  strcpy(blockedcontent[0], "x-msdownload");
  EXPECT_EQ(isBannedContentType("text/x-MSdownload") * 2 + isBannedContentType(last.c_str()), 1);
  EXPECT_EQ(reason, "access to content type " + last + " blocked");
}
