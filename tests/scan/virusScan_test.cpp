#include "scan/virusScan.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"

using namespace netsift::test;

using Replies = std::map<std::string, int>;  // with the verdict

const std::string path = "/" + std::string(400, 'p');

/* What a call makes of an engine that greets, reads, replies and half-closes; `talk` is what it read, "|" between. */
int ask(const char *name, const char *greeting, const std::string &reply, std::string &talk, auto call) {
  const ScratchRoot root;
  const ScriptedDaemon engine(root, name, [&](int fd) {
    say(fd, greeting), talk = readOnce(fd), say(fd, reply), shutdown(fd, SHUT_WR), talk += "|" + readToEnd(fd);
  });
  return call();
}

TEST(VirusScan, ScanJudgesTheStatusInItsOrder) {
  // 2, 4 and 32 are exact values, the rest bits; a number too long has all of them; no word at all is clean.
  Replies replies = {{"4", 1}, {"6", -1}, {"40", 0}, {"36", -1}, {"", 0}, {"99999999999999999999", 0}};
  for (size_t length : {253, 300}) replies["2 " + std::string(length, 'v')] = 1;
  for (const auto &[reply, verdict] : replies) {
    std::string talk;
    char name[256] = "left over";
    EXPECT_EQ(ask("vlav", "", reply, talk, [&] { return Scan(path.c_str(), name); }), verdict) << reply;
    EXPECT_EQ(name, reply.size() > 2 && verdict == 1 ? reply.substr(2, 253) : "") << reply;
    EXPECT_EQ(talk, "SCAN 0 " + path.substr(0, 247) + "|");
  }
}

TEST(VirusScan, ClamdAnswersAreClassifiedByWord) {
  for (const auto &[reply, verdict] : Replies{{"/OK: FOUND", 1}, {"OK\n", 0}, {"FOUND: ERROR\n", -2}, {"\n", -2}}) {
    std::string talk;
    EXPECT_EQ(ask("vlcavd.sock", "", reply, talk, [] { return isInfectedclam(path.c_str()); }), verdict) << reply;
    EXPECT_EQ(talk, "SCAN " + path + "|QUIT") << reply;
  }
}

TEST(VirusScan, LineDialogueTakesTheLastName) {
  const std::string longLine = "324-" + std::string(2000, 'n');
  for (const auto &[reply, verdict] : Replies{{"322-First x\r\n323-Name y\r\n310-Other\r\n322 none\n 231 x\r\n", 1},
                                              {longLine + "\n322-Name\n210\n", 0},
                                              {"322-Name\r\n550 broken\r\n", -3}}) {
    std::string talk;
    char name[2047];
    MAX_TIME_FOR_VLAV = 5;
    EXPECT_EQ(ask("vlav", "220 hello\r\n", reply, talk, [&] { return isInfected("/f", name); }), verdict) << reply;
    EXPECT_STREQ(name, "Name") << reply;
    EXPECT_EQ(talk, "SCAN abefghijkpqRSTUW /f\r\n|QUIT\r\n") << reply;
    MAX_TIME_FOR_VLAV = verdict;  // seconds of silence; a negative limit is a failed wait
    EXPECT_EQ(ask("vlav", "", reply, talk, [] { return isInfected("/f", nullptr); }), -1) << verdict;
  }
}

TEST(VirusScan, NoRoomForTheSocketsPathAndAnEngineThatBreaksOff) {
  const ScratchRoot root;
  std::string deep = root.path() + std::string(100, '/');
  char name[256], *const kept = std::exchange(installroot, deep.data());
  EXPECT_EQ(Scan("/f", name) + isInfectedclam("/f"), -2);
  installroot = kept;
  const ScriptedDaemon hasty(root, "vlav", [](int) {});
  EXPECT_EQ(Scan("/f", strcpy(name, "left over")), -1);
  EXPECT_STREQ(name, "AV ");
}

TEST(VirusScan, ReadlineKeepsToItsRoom) {
  for (const auto &[maximum, count] : std::map<size_t, int>{{1, 1}, {4, 4}, {5, 4}}) {
    const SocketPair pair;
    pair.send("abc\ndef");
    const GuardedText buffer(std::string(maximum, '#'), false);
    EXPECT_EQ(readline(pair.near, buffer.get(), static_cast<int>(maximum)), count);
    EXPECT_EQ(buffer.get(), std::string("abc\n").substr(0, maximum - 1));
  }
  EXPECT_EQ(readline(-1, nullptr, INT32_MIN), 1);
  EXPECT_EQ(getAVRespCode(GuardedText("23").get()), 182);  // the third character counts as code 0
}
