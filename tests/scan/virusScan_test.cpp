#include "scan/virusScan.h"

#include <gtest/gtest.h>

#include <map>

#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

using namespace netsift::test;

namespace {

const std::string path = "/" + std::string(400, 'p');

/* What a call makes of an engine that greets, reads, replies and half-closes; `talk` is what it read, "|" at its reply.
 */
int ask(const char *name, const char *greeting, const std::string &reply, std::string &talk, auto call) {
  const ScratchRoot root;
  ScriptedDaemon engine(root.path() + "/opt/Velmora/var/run/" + name, [&](int fd) {
    say(fd, greeting), talk = readOnce(fd), say(fd, reply), shutdown(fd, SHUT_WR), talk += "|" + readToEnd(fd);
  });
  return call();
}

TEST(VirusScan, ScanJudgesTheStatusInItsOrder) {
  // 2, 4 and 32 are exact values, the rest bits; a number too long has all of them; no word at all is clean.
  std::map<std::string, int> verdicts = {{"4", 1},  {"6", -1}, {"32", -1},
                                         {"40", 0}, {"16", 0}, {"36", -1},
                                         {"0", 0},  {"", 0},   {"99999999999999999999", 0}};
  for (size_t length : {3, 253, 300}) verdicts["2 " + std::string(length, 'v')] = 1;
  for (const auto &[reply, verdict] : verdicts) {
    std::string talk;
    char name[256] = "left over";
    EXPECT_EQ(ask("vlav", "", reply, talk, [&] { return Scan(path.c_str(), name); }), verdict) << reply;
    EXPECT_EQ(name, reply.size() > 2 && verdict == 1 ? reply.substr(2, 253) : "") << reply;
    EXPECT_EQ(talk, "SCAN 0 " + path.substr(0, 247) + "|");
  }
}

TEST(VirusScan, ClamdAnswersAreClassifiedByWord) {
  const std::map<std::string, int> cases = {
      {"/OK: FOUND", 1}, {"OK\n", 0}, {"FOUND: ERROR\n", -2}, {"\n", -2}, {"", -1}};
  for (const auto &[reply, verdict] : cases) {
    std::string talk;
    EXPECT_EQ(ask("vlcavd.sock", "", reply, talk, [] { return isInfectedclam(path.c_str()); }), verdict) << reply;
    EXPECT_EQ(talk, "SCAN " + path + (verdict == -1 ? "|" : "|QUIT")) << reply;
  }
}

TEST(VirusScan, LineDialogueTakesTheLastName) {
  const std::map<std::string, int> cases = {{"322-First x\r\n323-Name y\r\n310-Other\r\n322 none\n 231 x\r\n", 1},
                                            {"324-" + std::string(2000, 'n') + "\n322-Name\n210\n", 0},
                                            {"322-Name\r\n550 broken\r\n", -3}};
  for (const auto &[reply, verdict] : cases) {
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

TEST(VirusScan, NoEngineAndOneThatGoesAway) {
  const ScratchRoot root;
  char name[256];
  std::string deep = root.path() + std::string(100, '/');
  char *roots[] = {installroot, deep.data(), installroot};  // no socket, no room for its path, breaking off
  for (char *&at : roots) {
    ScriptedDaemon hasty(root.path() + "/opt/Velmora/var/run/" + (&at == &roots[2] ? "vlav" : "other"), [](int) {});
    unlink((root.path() + "/opt/Velmora/var/run/other").c_str());
    installroot = at;
    EXPECT_EQ(Scan("/f", name) + isInfectedclam("/f"), -2);
    EXPECT_STREQ(name, "AV ");
  }
  installroot = roots[0];
}

TEST(VirusScan, ReadlineKeepsToItsRoom) {
  for (const auto &[maximum, count] : std::map<int, int>{{1, 1}, {4, 4}, {5, 4}, {9, 4}}) {
    SocketPair pair;
    pair.send("abc\ndef");
    const GuardedText buffer(std::string(static_cast<size_t>(maximum), '#'), false);
    EXPECT_EQ(readline(pair.near, buffer.get(), maximum), count);
    EXPECT_EQ(buffer.get(), std::string("abc\n").substr(0, static_cast<size_t>(maximum) - 1));
  }
  EXPECT_EQ(readline(-1, nullptr, INT32_MIN), 1);
  EXPECT_EQ(getAVRespCode(GuardedText("23").get()), 182);  // the third character counts as code 0
}

}  // namespace
