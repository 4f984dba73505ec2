#include "log/debugLog.h"

#include <fcntl.h>

#include <regex>

#include "log/peerText.h"
#include "tests/support/support.h"

namespace {

const std::string stamp = R"(\d\d:\d\d:\d{4} \d\d:\d\d:\d\d Netsift\[)" + std::to_string(getpid()) + R"(\]: )";

void expectMatch(const std::string &text, const std::string &pattern) {
  EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text;
}

TEST(DebugLog, WritesPrefixAndMessageUpToTheLevel) {
  const LogCapture log(4);
  skipPID();
  dprintf(4, "dropped: neither flag nor debug string\n");
  setDebugString("%s%n:"); /* printed as text */
  int evaluated = 0;
  errno = ENOENT;
  dprintf(4, "four %d %m\n", ++evaluated);
  EXPECT_EQ(errno, ENOENT);
  dprintf(5, "five %d\n", ++evaluated);
  netsift_dprintf(5, "five, called by a host\n");
  netsift_dprintf(256 + 3, "levels are bytes\n");
  EXPECT_EQ(evaluated, 1);
  const std::string start = "%s%n:" + stamp;
  tm time{};
  strptime(errorcode, "%%s%%n:%m:%d:%Y %H:%M:%S", &time);
  time.tm_isdst = -1;
  EXPECT_LT(std::time(nullptr) - mktime(&time), 60) << errorcode;
  expectMatch(log.text(), stamp + start + "four 1 No such file or directory\n" + start + "levels are bytes\n");
}

TEST(DebugLog, CutsLongTextsReleasesOnlyItsOwnStampAndAppendsToItsFile) {
  const ScratchRoot root;
  const std::string path = root.log("debug.log");
  writeFile(path, "before\n");
  EXPECT_EQ(dInitialise(path.c_str(), 4, std::string(80, 'D').c_str(), 0, 0), 1);
  dprintf(1, "%s", std::string(2000, 'x').c_str());
  EXPECT_EQ(dInitialise(nullptr, 2, "Y:", 0, 0), 1); /* keeps the stream */
  EXPECT_EQ(readFile(path).size(), 7u + 1023);
  dprintf(3, "off\n");
  char hosts[] = "the host's";
  errorcode = hosts; /* releasing it would end the test */
  for (int line = 0; line < 2; line++) dprintf(1, "%s\n", errorcode);
  EXPECT_EQ(dInitialise((root.path() + "/none/debug.log").c_str(), 7, nullptr, 1, 1), 0);
  dprintf(1, "nowhere\n");
  const std::string start = "Y:" + stamp, cut = "before\n" + std::string(50, 'D') + stamp + "x+";
  expectMatch(readFile(path), cut + start + "the host's\n" + start + start + "\n");
}

TEST(DebugLog, AStreamThatIsSetStaysOpenAndWhatItRefusesLeavesErrno) {
  const ScratchRoot root;
  ASSERT_EQ(dFileOpen(root.log("debug.log").c_str()), 1);
  const int next = dup(0);
  close(next);
  FILE *hosts = std::fopen("/dev/full", "a"); /* every line fails */
  EXPECT_EQ(fileno(hosts), next);
  dFileStreamSet(hosts);
  setDebugLevel(7);
  printPID();
  errno = EINTR;
  dprintf(7, "lost\n");
  EXPECT_EQ(errno, EINTR);
  EXPECT_NE(fcntl(next - 1, F_GETFD), -1); /* the log's own file */
  ASSERT_EQ(dFileOpen(root.log("next.log").c_str()), 1);
  EXPECT_EQ(fcntl(next - 1, F_GETFD), -1);
  EXPECT_NE(fcntl(next, F_GETFD), -1);
  dFileClose();
  std::fclose(hosts);
}

TEST(PeerText, IsCutSoThatARecordKeepsItsLineEnd) {
  const LogCapture log(5);
  setDebugString(std::string(50, 'D').c_str());
  EscapeText = 1;
  const std::string longest(2000, '"'), line = longest + "\r\n";
  dprintf(1, "%s %s %s and so on\n", netsift::peerText(longest.c_str()), netsift::peerText(longest.c_str()),
          netsift::peerText(longest.c_str()));
  netsift::tracePeerLine(5, line.c_str());
  netsift::tracePeerLine(6, line.c_str());
  EXPECT_EQ(log.messages().size(), 2U);
}

}  // namespace
