#include "scan/virusScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

using namespace netsift::test;

namespace {

std::string vlavPath(const ScratchRoot &root) { return root.path() + "/opt/Velmora/var/run/vlav"; }
std::string vlcavPath(const ScratchRoot &root) { return root.path() + "/opt/Velmora/var/run/vlcavd.sock"; }

auto openDescriptors() {
  std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST(VirusScan, ScanJudgesTheStatusInItsOrder) {
  const struct {
    std::string reply;
    int32_t verdict;
    std::string name;
  } cases[] = {
      {"2 Marker.A\n", 1, "Marker.A\n"},
      {"4 Marker.B", 1, "Marker.B"},
      {"4", 1, ""},
      {"2 " + std::string(300, 'v'), 1, std::string(253, 'v')},
      {"6 both bits", -1, ""},  // 2 and 4 are exact values, not bits
      {"32", -1, ""},
      {"40", 0, ""},  // 32 exactly is an error, 32 and 8 an encrypted object
      {"10", 0, ""},
      {"16", 0, ""},
      {"64", 0, ""},
      {"36", -1, ""},
      {"1", -1, ""},
      {"0", 0, ""},
      {"no number", 0, ""},
      {"99999999999999999999", 0, ""},  // all bits
      {"", 0, ""},                      // closed without a word
  };
  for (const auto &c : cases) {
    ScratchRoot root;
    std::string request;
    ScriptedDaemon engine(vlavPath(root), [&](int fd) { request = readOnce(fd), say(fd, c.reply); });
    char name[256] = "left over";
    EXPECT_EQ(Scan("/spool/scanfile.1", name), c.verdict) << c.reply;
    EXPECT_EQ(name, c.name) << c.reply;
    EXPECT_EQ(Scan("/spool/scanfile.1", nullptr), c.verdict) << c.reply;
    engine.finish();
    EXPECT_EQ(request, "SCAN 0 /spool/scanfile.1");
  }
}

TEST(VirusScan, ScanWithoutAnEngine) {
  ScratchRoot root;
  char name[256];
  EXPECT_EQ(Scan(nullptr, name), -1);
  EXPECT_STREQ(name, "invalid null argument(s)");
  EXPECT_EQ(Scan("/f", name), -1);
  EXPECT_STREQ(name, "AV ");

  std::string request;
  {
    ScriptedDaemon engine(vlavPath(root), [&](int fd) { request = readOnce(fd); });
    EXPECT_EQ(Scan(std::string(300, 'p').c_str(), name), 0);
  }
  EXPECT_EQ(request, "SCAN 0 " + std::string(247, 'p'));

  const auto before = openDescriptors();
  std::filesystem::remove(vlavPath(root));
  ScriptedDaemon hasty(vlavPath(root), [](int) {});  // gone with the request unread
  EXPECT_EQ(Scan("/f", name), -1);
  EXPECT_STREQ(name, "AV ");
  hasty.finish();
  EXPECT_EQ(openDescriptors(), before);

  std::string deep = root.path() + "/" + std::string(100, 'x');
  char *shallow = std::exchange(installroot, deep.data());
  EXPECT_EQ(Scan("/f", name), -1);  // a path that fits no address is a missing socket
  installroot = shallow;
}

TEST(VirusScan, ClamdAnswersAreClassifiedByWord) {
  const struct {
    const char *reply;
    int32_t verdict;
  } cases[] = {{"/f: Marker FOUND\n", 1},       {"/f: Marker FOUND", 1}, {"/f: OK\n", 0}, {"/OK: Marker FOUND\n", 1},
               {"/FOUND: lstat() ERROR\n", -2}, {"/f: what\n", -2},      {"\n", -2},      {"", -1}};
  for (const auto &c : cases) {
    ScratchRoot root;
    const auto before = openDescriptors();
    std::string request, goodbye;
    ScriptedDaemon engine(vlcavPath(root), [&](int fd) {
      request = readOnce(fd);
      say(fd, c.reply);
      shutdown(fd, SHUT_WR);
      goodbye = readToEnd(fd);
    });
    EXPECT_EQ(isInfectedclam(("/" + std::string(400, 'p')).c_str()), c.verdict) << c.reply;
    engine.finish();
    EXPECT_EQ(request, "SCAN /" + std::string(400, 'p'));
    EXPECT_EQ(goodbye, c.verdict == -1 ? "" : "QUIT") << c.reply;
    EXPECT_EQ(openDescriptors(), before) << c.reply;
  }
  ScratchRoot root;
  LogCapture log(1);
  EXPECT_EQ(isInfectedclam("/f"), -1);
  EXPECT_TRUE(log.has("Error Connecting to AV engine"));
}

TEST(VirusScan, LineDialogue) {
  const std::string longName(2000, 'n');
  const struct {
    std::string greeting, reply;
    int32_t verdict;
    std::string name;
  } cases[] = {
      {"220 ready\r\n", "210 begin\r\n", 0, "old"},
      {"220 ready\r\n", "322-First x\r\n310-Other y\r\n323-Second more\r\n230 done\r\n", 1, "Second"},
      {"220 ready\r\n", "322-Only\r\n322 nothing\r\n232 x\r\n", 1, "Only"},
      {"220 ready\r\n", "324-" + longName + "\n231\n", 1, longName},
      {"220 ready\r\n", "100 wait\r\n 230 leading blank counts\r\n", 1, "old"},
      {"220 ready\r\n", "450 busy\r\n", -2, "old"},
      {"220 ready\r\n", "550 broken\r\n", -3, "old"},
      {"220 ready\r\n", "322-Cut", -1, "Cut"},  // the stream ends before a verdict
      {"220 ready\r\n", "", -1, "old"},
      {"421 full\r\n", "230 never read\r\n", -1, "old"},
      {"", "", -1, "old"},
  };
  MAX_TIME_FOR_VLAV = 5;
  for (const auto &c : cases) {
    ScratchRoot root;
    std::string talk;
    ScriptedDaemon engine(vlavPath(root), [&](int fd) {
      say(fd, c.greeting);
      if (c.greeting.starts_with("2")) talk = readOnce(fd), say(fd, c.reply);
      shutdown(fd, SHUT_WR);
      talk += readToEnd(fd);
    });
    char name[2047] = "old";
    EXPECT_EQ(isInfected("/f", name), c.verdict) << c.greeting << c.reply;
    EXPECT_EQ(name, c.name) << c.greeting << c.reply;
    engine.finish();
    const std::string quit = c.verdict == -1 ? "" : "QUIT\r\n";
    EXPECT_EQ(talk, c.greeting.starts_with("2") ? "SCAN abefghijkpqRSTUW /f\r\n" + quit : "") << c.reply;
  }
}

TEST(VirusScan, GreetingIsWaitedForAsLongAsSet) {
  ScratchRoot root;
  ScriptedDaemon mute(vlavPath(root), [](int fd) { readToEnd(fd); });
  for (int seconds : {1, 0, -1}) {
    MAX_TIME_FOR_VLAV = seconds;
    const time_t start = time(nullptr);
    EXPECT_EQ(isInfected("/f", nullptr), -1);
    EXPECT_LE(time(nullptr) - start, 5) << seconds;
  }
}

TEST(VirusScan, ReadlineCounts) {
  const struct {
    std::string stream;
    int maximum, count;
    std::string stored;
  } cases[] = {{"ab\ncd", 100, 3, "ab\n"}, {"ab", 100, 3, "ab"},
               {"", 100, 0, ""},           {"\n", 100, 1, "\n"},
               {"abc\n", 5, 4, "abc\n"},   {"abc\n", 4, 4, "abc"},
               {"abc", 1, 1, ""},          {std::string(3000, 'x') + "\n", 2047, 2047, std::string(2046, 'x')}};
  for (const auto &c : cases) {
    SocketPair pair;
    pair.send(c.stream);
    pair.closeFar();
    GuardedText buffer(std::string(static_cast<size_t>(c.maximum), '#'), false);
    EXPECT_EQ(readline(pair.near, buffer.get(), c.maximum), c.count) << c.stream;
    EXPECT_EQ(buffer.get(), c.stored) << c.stream;
  }
  EXPECT_EQ(readline(-1, nullptr, INT32_MIN), 1);
  char buffer[8];
  EXPECT_EQ(readline(-1, buffer, sizeof buffer), -1);
}

TEST(VirusScan, ReplyCode) {
  const struct {
    const char *line;
    int code;
  } cases[] = {{"230 x", 230}, {"999", 999}, {"abc", 5451}, {"23", 23 * 10 - 48}, {"", -5328}};
  for (const auto &c : cases) EXPECT_EQ(getAVRespCode(GuardedText(c.line).get()), c.code) << c.line;
}

}  // namespace
