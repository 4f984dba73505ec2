#include "pages/answer.h"

#include "connection/verdict.h"
#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "pages/htmlTemplate.h"
#include "tests/support/support.h"

constexpr char head[] = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nPragma: no-cache\r\n";

std::string strict(int status, const std::string &text) {
  return "HTTP/1.1 " + std::to_string(status) + " " + text +
         "\r\nContent-Type: text/html\r\nPragma: no-cache\r\nConnection: close\r\n";
}

TEST(HtmlTemplate, replacesEveryPair) {
  const ScratchRoot root;
  const std::string longUrl(80, 'u');
  url = strdup(longUrl.c_str());
  static char mail[] = "admin", stamp[] = "stamp";
  mailto = mail;
  strcpy(reason, "why");
  const std::string longReason(199, 'r');
  const auto filled = [&](const std::string &text, int32_t *length) {
    writeFile(root.config("t"), text);
    return take(readTemplate(root.config("t").c_str(), length));
  };
  const std::pair<std::string, std::string> cases[] = {
      {"a%rb%eb%ac", "awhybbadminc"}, {"%u", longUrl.substr(0, 50)}, {"100% of %%x", "100of x"},   {"%", ""},
      {"ends\xFFnever seen", "ends"}, {"%\xFFgoes on", "goes on"},   {"%r%r%r%r", "whywhywhywhy"}, {"", ""}};
  for (const auto &[text, expected] : cases) {
    int32_t length = -7;
    EXPECT_EQ(filled(text, &length), expected) << text;
    EXPECT_EQ(length, static_cast<int32_t>(expected.size()) - 1) << text;
  }
  errorcode = stamp;
  strcpy(reason, longReason.c_str());
  EXPECT_EQ(filled("%e%r%r%r", nullptr), "stamp" + longReason + longReason + longReason);
  EXPECT_EQ(url, longUrl);
  EscapeText = 1;
  strcpy(reason, "<a href=\"x\">");
  EXPECT_EQ(filled("<%r>", nullptr), "<&lt;a href=&quot;x&quot;&gt;>");
  EXPECT_EQ(readTemplate(root.config("missing").c_str(), nullptr), nullptr);
}

TEST(Answers, areExactlyTheseBytes) {
  const ScratchRoot root;
  writeFile(root.config("template.htm"), "<b>%u</b>");
  writeFile(root.config("errortemplate.htm"), "E%u");
  const std::string h = head;
  const std::tuple<const char *, int32_t, int, std::string> cases[] = {
      {"h/a", 0, 1, h + "Content-Length: 10\r\n\r\n<b>h/a</b>"},
      {"h/Messenger.x", 0, 1, h + "Content-Length: 0\r\n\r\n"}, /* whose template is missing */
      {nullptr, 0, 1, h + "Content-Length: 7\r\n\r\n<b></b>"},
      {"h/a", 0, 0, h + "Content-Length: 0\r\n"},
      {"h/a", 1, 0, strict(403, "Forbidden") + "Content-Length: 0\r\n\r\n"},
      {"h/a", 1 + 2, 1, strict(200, "OK") + "Content-Length: 10\r\n\r\n<b>h/a</b>"},
      {"h/a", 1, 2, strict(403, "Forbidden") + "\r\nEh/a"},
      {"h/a", 0, 2, h + "\r\nEh/a"},
      {"h/a", 0, 3, h + "Content-Length: 0\r\n\r\n"}};
  for (const auto &[target, isStrict, kind, expected] : cases) {
    const SocketPair client, other;
    clientsock = client.near;
    StrictHttp = isStrict;
    url = target == nullptr ? nullptr : strdup(target);
    hostname = strdup("h");
    reqheader = makeHeader({"GET / HTTP/1.0"});
    writeFile(root.config("scanfile"), "x");
    if (kind < 2) blockConnection(client.near, static_cast<uint8_t>(kind));
    if (kind == 2) sendError(client.near);
    if (kind == 3) closeConnection(client.near, other.near, root.config("scanfile").c_str());
    EXPECT_EQ(client.receive(), expected);
    EXPECT_EQ(url, nullptr);
    EXPECT_EQ(hostname, nullptr);
    EXPECT_EQ(reqheader.first, nullptr);
    EXPECT_EQ(readFile(root.config("scanfile")), kind == 3 ? "" : "x");
  }
}

TEST(Verdict, blockedPortsEndAtTheFirstZeroOrTheHundredth) {
  blockedports[0] = 25;
  blockedports[2] = 99;
  EXPECT_EQ(isBlockedPort(25), 1);
  EXPECT_EQ(isBlockedPort(99), 0);
  EXPECT_EQ(isBlockedPort(0), 0);
  for (int32_t &port : blockedports) port = 7;
  EXPECT_EQ(isBlockedPort(8), 0);
}

/* Where RSAC's violation is not logged, SafeSurf's name stands in the reason. */
TEST(Verdict, ratingsAreTestedOnTheFirstChunkAlone) {
  const ScratchRoot root;
  const std::string page = R"(<META><head><meta name="pics-label" content='(x "rsac" r (v 4))'></head>)";
  testforratings = rsacenable = logenable = 1;
  logfilename = strdup("access.log");
  const SocketPair client;
  clientsock = client.near;
  const std::tuple<int32_t, uint8_t, int32_t, std::string> cases[] = {
      {0, 1, NETSIFT_PAGE_PASSES, ""}, {1, 1, -1, "RSAC rating violated"}, {1, 0, -1, "SafeSurf rating violated"}};
  for (const auto &[first, logged, expected, why] : cases) {
    url = strdup("h/p");
    reason[0] = '\0';
    lograting = logged;
    std::string copy = page;
    EXPECT_EQ(checkAllRight(copy.data(), static_cast<int32_t>(copy.size()), first), expected);
    EXPECT_EQ(copy, page) << "the chunk is delivered afterwards";
    EXPECT_EQ(reason, why);
    take(std::exchange(url, nullptr));
  }
  EXPECT_TRUE(readFile(root.log("access.log")).ends_with("\"Rating Violation\" \"RSAC\"\n")) << "and no record more";
  free(logfilename);
}

TEST(Verdict, aCategoryBeyondThe127thIsNamed) {
  const ScratchRoot root;
  const SocketPair client;
  clientsock = client.near;
  writeFile(root.config("none.phrase"), "<zz>1\n<zzz>1\n");
  writeFile(root.config("Late.phrase"), "<vexatious>10\n<zzz>1\n");
  std::vector<std::string> files(200, "none");
  files[130] = "Late";
  nameCategories(files);
  contentcheck = 1;
  allowedweight = 10;
  ASSERT_EQ(makePhraseLists(), 1);
  ASSERT_EQ(iniContentFilter(), NETSIFT_LOADED);
  url = strdup("h/p");
  std::string page = "<p>a vexatious page</p>";
  EXPECT_EQ(checkAllRight(page.data(), static_cast<int32_t>(page.size()), 1), NETSIFT_PAGE_BLOCKED);
  EXPECT_NE(std::string(reason).find("category Late"), std::string::npos) << reason;
  take(std::exchange(url, nullptr));
  freePhraseLists();
}
