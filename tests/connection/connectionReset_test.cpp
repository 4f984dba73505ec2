#include "connection/connectionReset.h"

#include <fcntl.h>

#include "content/phraseList.h"
#include "log/debugLog.h"
#include "log/hostLog.h"
#include "policy/urlList.h"
#include "tests/connection/cycle_fixture.h"

using namespace netsift;
using namespace netsift::test;

namespace {

/* What a connection can find, as far as it has names: every variable that serving changes. */
std::string state() {
  std::string bytes;
  auto add = [&bytes](const auto &variable) {
    bytes.append(reinterpret_cast<const char *>(&variable), sizeof variable);
  };
  std::apply([&](const auto &...each) { (add(each), ...); },
             std::tie(proxysock, clientip, reqheader, respheader, url, hostname, reshostname, resurl, dateAndTime1,
                      request, isipaddr, reqhost, remote_host, reason, virfilename, virwhite_reason, virfile, httpbody,
                      totalweight, contentinitialised, queue_count, blockip, urlcheck, proxyport, tunnellist));
  return bytes + errorcode;
}

int openDescriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; fd++) count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

class ResetTest : public ScanTest {};

}  // namespace

TEST_F(ResetTest, ConnectionsOfEveryKindLeaveNothingForTheNext) {
  static char file[] = "words", name[] = "Vexing";
  static char *files[] = {file}, *names[] = {name};
  categfiles1 = files;
  categname1 = names;
  numcategories1 = 1;
  allowedweight = 10;
  contentcheck = urlcheck = 1;
  writeFile(root.config("words.phrase"), "<\"vexatious\">10\n<zzz>1\n");
  ASSERT_EQ(makePhraseLists(), 1);
  static IpPattern exempt{"10.*", nullptr};
  WhiteIP1 = &exempt;
  blockip = tunnelmessengers = 1;
  std::strcpy(tunnellist[0], "im.example  ");
  engine({"stream: OK\n", "x: Made.Up FOUND\n", "stream: OK\n", "x: Made.Up FOUND\n"});

  const std::string page = response("Content-Type: text/html\r\n" + dated, "<p>fine</p>"),
                    bad = response("Content-Type: text/html\r\n" + dated, "a vexatious page"), address(2000, '7');
  const std::pair<std::string, std::string> kinds[] = {
      {get, page},
      {get, bad},
      {get, response("Content-Length: 9\r\n", "cut")},
      {"GET http://h/p HTTP/1.1\r\nHost: h\r\nX: broken off", ""},
      {"GET http://10.0.0.1/ HTTP/1.1\r\nHost: 10.0.0.1\r\n\r\n", page},
      {"GET http://im.example/ HTTP/1.1\r\nHost: im.example\r\n\r\n", page},
      {"POST http://h/p HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\n12345", page},
      {"GET http://h/" + address + " HTTP/1.1\r\nHost: h\r\n\r\n", response("", std::string(70000, 'x'))},
      {"CONNECT h:443 HTTP/1.1\r\nHost: h:443\r\n\r\n", "HTTP/1.1 200 OK\r\n\r\nhello"},
      {"nonsense\r\n\r\n", ""},
  };
  for (const int32_t road : {0, +STRICT_HTTP}) {
    StrictHttp = road;
    proxyport = 3128;
    netsift_keepState();
    const std::string before = state();
    for (const auto &[asked, answer] : kinds) {
      serve(asked, {answer});
      netsift_resetState(-1);
      proxyport = 3128; /* the fixture's own */
      EXPECT_TRUE(state() == before) << "road " << road << ": " << asked.substr(0, 60);
    }
    const std::string octet = std::to_string(road + 1); /* a line of its own for each road */
    serve("GET http://11.0.0." + octet + "/ HTTP/1.1\r\nHost: 11.0.0." + octet + "\r\n\r\n", {});
    netsift_resetState(-1);
    EXPECT_TRUE(log.has("Client IP:10.1.2.3,URL:11.0.0." + octet +
                        ",STATUS:BLOCKED,IP Blocking:access to ip based url is blocked"))
        << "an exemption that another connection got, on road " << road;
  }
  freePhraseLists();
}

TEST_F(ResetTest, EntriesThatALookUpTrimsAreAsLoaded) {
  writeFile(root.config("whitelist.url"), "");
  writeFile(root.config("whitelist.dom"), "10.1 \n");
  ASSERT_EQ(makeWhiteList(), 1);
  netsift_keepState();
  for (int connection = 0; connection < 2; connection++) {
    char host[] = "10.1.2.3";
    EXPECT_EQ(inWhiteList("x", host, 1), 0) << "an entry that had to be trimmed matches only its equal";
    EXPECT_EQ(inWhiteList("x", host, 1), 1) << "and is trimmed from then on";
    netsift_resetState(-1);
  }
  freeWhiteList();
}

TEST_F(ResetTest, DescriptorsFromTheGivenOneOnAreClosed) {
  const int before = openDescriptors(), first = fcntl(0, F_DUPFD, 500);
  netsift_keepState();
  for (int i = 0; i < 5; i++) fcntl(0, F_DUPFD, 500 + 100 * i);
  netsift_resetState(-1);
  EXPECT_EQ(openDescriptors(), before + 6);
  netsift_resetState(first + 1);
  EXPECT_EQ(openDescriptors(), before + 1);
  close(first);
}

TEST_F(ResetTest, TheLogsStampIsTheKeptOneAndAHostsTextStaysItsOwn) {
  setDebugLevel(1);
  dprintf(1, "before\n");
  netsift_keepState();
  const std::string stamp = errorcode;
  setDebugString("other");
  for (int i = 0; i < 3; i++) dprintf(1, "served\n");
  EXPECT_NE(errorcode, stamp);
  netsift_resetState(-1);
  EXPECT_EQ(errorcode, stamp);
  dprintf(1, "loading anew\n");
  netsift_keepState();
  EXPECT_EQ(std::string(errorcode).substr(0, 5), "other");
  char own[] = "the host's";
  errorcode = own;
  netsift_keepState();
  dprintf(1, "served\n");
  netsift_resetState(-1);
  EXPECT_EQ(errorcode, own);
  errorcode = nullptr;
}
