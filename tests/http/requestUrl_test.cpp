#include "http/requestUrl.h"

#include "tests/support/support.h"

TEST(GetUrl, NormalisesTargetsAndRefusesUnusableLines) {
  const string path = "h/" + string(498, 'p'), host(44, 'h');
  const struct {
    string line, expected; /* "method|url|host|port" */
    string hostField = "";
  } cases[] = {
      {"GET https://h:8080//a//x// HTTP/1.1\r\n", "GET|h//a//x/|h|8080"},
      {"GET   http://h:8x/a b c   HTTP/1.1", "GET|h/a b c|h|152"},
      {"GET http://h:4294967376 HTTP/1.1", "GET|h|h|80"},
      {"GET 2345678/bc HTTP/1.1", "GET|c|c|80"},
      {"GET 12345678/bc HTTP/1.1", "GET|12345678/bc|12345678|80"},
      {"GET http:/ HTTP/1.1", "GET|||80"},
      {"GET h HTTP/1.1", "GET|h|h|80"},
      {"GET http://" + path + "/ HTTP/1.1", "GET|" + path + "|h|80"},
      {"GET http://" + path + "x HTTP/1.1", "GET|" + path + "...|h|80"},
      {"GET http://" + string(300, 'h') + ":8/x HTTP/1.1", "GET|" + host + "/x|" + host + "|8"},
      {"GET /index.html HTTP/1.1\r\n", "GET|h/index.htm|h|81", "h:81"},
      {"get /a/ http/1.0\n", "get|h/a|h|80", "h"},
      {"VERSIONCONTROL / HTTP/1.1", "VERSIONCONTROL|h|h|80", "h"},
      {"FIFTEENLETTERS1 h HTTP/1.1", "|<none>|<none>|7"},
      {"GET  HTTP/1.1\r\n", "GET|<none>|<none>|7"},
      {"GET /a Http/1.1\r\n", "GET|<none>|<none>|7", "h"},
      {"GET /a HTTP/1.1\r\n", "GET|<none>|<none>|7"},
  };
  for (const auto &c : cases) {
    const GuardedText text(c.line), fieldText("hOST: " + c.hostField + "\r\n");
    HeaderLine field{fieldText.get(), nullptr}, line{text.get(), c.hostField.empty() ? nullptr : &field};
    unsigned port = 7;
    char *found = nullptr;
    request[0] = '\0';
    const string url = take(getURL(&line, &port, &found));
    EXPECT_EQ(string(request) + "|" + url + "|" + take(found) + "|" + std::to_string(port), c.expected) << c.line;
  }
}

TEST(UrlHelpers, TakeTextsApart) {
  EXPECT_EQ(take(decodeURL(GuardedText("%2Fb%zz%c3%BC%4").get())), "/b%zz\xc3\xbc%4");
  for (const auto &[text, value] : {std::pair{"last-modified:  X \r\n", " X "}, {"Last-Modified: X", ""}}) {
    const GuardedText guarded(text);
    HeaderLine line{guarded.get(), nullptr}, first{nullptr, &line};
    EXPECT_EQ(take(getModificationTime(&first)), value) << text;
  }
  EXPECT_EQ(isAnIP("host9") * 4 + isAnIP("1.2.3.4.") * 2 + isAnIP(""), 4);
}

TEST(UrlHelpers, BannedContentTypesEndAtTheHundredthEntry) {
  const string last(100, 'y');
  std::memset(blockedcontent, 'y', sizeof blockedcontent); /* the hundredth entry is followed by no NUL */
  strcpy(blockedcontent[0], "x-msdownload");
  EXPECT_EQ(isBannedContentType("text/x-MSdownload") * 2 + isBannedContentType(last.c_str()), 1);
  EXPECT_EQ(reason, "access to content type " + last + " blocked");
  StrictHttp = STRICT_HTTP;
  EXPECT_EQ(isBannedContentType("text/X-msDownload"), 1) << "in any case of letters there";
}
