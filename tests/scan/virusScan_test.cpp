#include "scan/virusScan.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>

#include "http/httpHeader.h"
#include "scan/scanTunnel.h"
#include "tests/support/scriptedDaemon.h"

using Replies = std::map<std::string, int>; /* with the verdict */

const std::string path = "/" + std::string(400, 'p');

/* What a call makes of an engine that greets, reads, replies and half-closes; `talk` is what it read, "|" between. */
int ask(const char *name, const char *greeting, const std::string &reply, std::string &talk, auto call) {
  const ScratchRoot root;
  const ScriptedDaemon engine(root, name, [&](int fd) {
    say(fd, greeting), talk = readOnce(fd), say(fd, reply), shutdown(fd, SHUT_WR), talk += "|" + readToEnd(fd);
  });
  return call();
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

/* Of a status 2, 4 and 32 are exact values, the rest bits; a number too long has all of them. With StrictHttp the reply
   says what it says; without, any text that has the letters does, and no word at all is clean. */
TEST(VirusScan, RepliesAreJudgedStrictlyOrByTheirLetters) {
  const std::string longName(300, 'v'), filled = "/f: " + std::string(2100, 'x');
  const std::tuple<const char *, int, int, std::vector<std::string>> cases[] = {
      {"vlav", 1, 1, {"4", "2 " + longName.substr(0, 253), "2 " + longName}},
      {"vlav", -1, -1, {"6", "36"}},
      {"vlav", 0, 0, {"40", "99999999999999999999", "0\r\n"}},
      {"vlav", 0, -1, {"hello", "", " 0", "0x"}},
      {"vlcavd.sock", 0, 0, {"/f: OK\r\n"}},
      {"vlcavd.sock", 1, 1, {"/OK: FOUND"}},
      {"vlcavd.sock", 0, -2, {"/f: OKAY\n", "/f: OK, ask later\n", filled.substr(0, 2043) + " OK and on\n"}},
      {"vlcavd.sock", -2, 1, {"/f: ERROR-a FOUND\n"}},
      {"vlcavd.sock", -2, -2, {"/f: No such file. ERROR\n", "\n"}}};
  for (const auto &[socket, verdict, strictVerdict, replies] : cases) {
    const bool isClamd = std::string_view(socket) != "vlav";
    for (const std::string &reply : replies) {
      for (StrictHttp = 0; StrictHttp < 2; StrictHttp++) {
        std::string talk;
        char name[256] = "left over";
        const auto call = [&] { return isClamd ? isInfectedclam(path.c_str()) : Scan(path.c_str(), name); };
        EXPECT_EQ(ask(socket, "", reply, talk, call), StrictHttp == 1 ? strictVerdict : verdict) << reply << StrictHttp;
        if (!isClamd && StrictHttp == 0) {
          EXPECT_EQ(name, verdict == 1 && reply.size() > 2 ? reply.substr(2, 253) : "") << reply;
        }
        if (reply.size() > 2000) continue; /* what is left unread breaks the connection off */
        EXPECT_EQ(talk, isClamd ? "SCAN " + path + "|QUIT" : "SCAN 0 " + path.substr(0, 247) + "|") << reply;
      }
    }
  }
}

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

int32_t scanCall() { return Scan("/f", nullptr); }
int32_t linesCall() { return isInfected("/f", nullptr); }
int32_t clamdCall() { return isInfectedclam("/f"); }

/* What an engine may do instead of answering, over a connection that it keeps open. */
void stall(int fd) { readToEnd(fd); }
void drip(int fd) {
  do std::this_thread::sleep_for(milliseconds(50));
  while (::send(fd, "1", 1, MSG_NOSIGNAL) > 0);
}
void chatter(int fd) { /* faster than it is read */
  std::string lines;
  for (int line = 0; line < 4000; line++) lines += "100 one moment\n";
  while (::send(fd, lines.data(), lines.size(), MSG_NOSIGNAL) > 0) continue;
}
void condemnAndStall(int fd) { say(fd, "2 x FOUND\n231\n"), readToEnd(fd); }

/* Takes connections into its queue, beside one that is there, and never looks at them. */
struct DeafEngine {
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0), first = socket(AF_UNIX, SOCK_STREAM, 0);
  DeafEngine(const ScratchRoot &root, int queue) {
    sockaddr_un address{AF_UNIX, {}};
    (root.path() + "/opt/Velmora/var/run/vlav").copy(address.sun_path, sizeof address.sun_path - 1);
    const auto *place = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(bind(listener, place, sizeof address) | listen(listener, queue) | connect(first, place, sizeof address),
              0);
  }
  ~DeafEngine() { close(listener), close(first); }
};

TEST(VirusScan, AHungEngineOrAClientThatLeftHoldsNoProcess) {
  struct Case {
    const char *socket;
    void (*script)(int); /* null: its queue is full */
    int32_t (*ask)();
    bool answers, pauses; /* who never pauses is given up when the time is over, whether or not the client stays */
  };
  constexpr Case cases[] = {{"vlav", nullptr, scanCall, false, true},
                            {"vlav", stall, scanCall, false, true},
                            {"vlav", stall, linesCall, false, true},
                            {"vlav", chatter, linesCall, false, false},
                            {"vlcavd.sock", stall, clamdCall, false, true},
                            {"vlcavd.sock", drip, clamdCall, false, true},
                            {"vlcavd.sock", condemnAndStall, clamdCall, true, true},
                            {"vlav", condemnAndStall, linesCall, true, true}};
  StrictHttp = STRICT_HTTP;
  MAX_TIME_FOR_VLAV = 60;
  for (const Case &one : cases) {
    for (const bool leaves : {false, true}) {
      SCOPED_TRACE(testing::Message() << (&one - cases) << leaves);
      const ScratchRoot root;
      std::optional<ScriptedDaemon> engine;
      std::optional<DeafEngine> deaf;
      if (one.script == nullptr) deaf.emplace(root, 0);
      if (one.script != nullptr) engine.emplace(root, one.socket, one.script);
      SocketPair client;
      clientsock = client.near;
      EngineTimeout = leaves && one.pauses ? 0 : 1;
      std::thread leaving([&] {
        std::this_thread::sleep_for(milliseconds(100));
        if (leaves) client.closeFar();
      });
      const auto start = Clock::now();
      EXPECT_EQ(one.ask(), one.answers ? 1 : -1);
      const auto took = Clock::now() - start;
      EXPECT_GE(took, milliseconds(one.answers ? 0 : leaves ? 90 : 990));
      EXPECT_LT(took, milliseconds(one.answers ? 900 : 4000));
      leaving.join();
    }
  }
}

TEST(VirusScan, TheGreetingIsWaitedForAsLongAsItIsSaid) {
  const ScratchRoot root;
  const DeafEngine engine(root, 8);
  for (const int strict : {0, 1}) {
    StrictHttp = strict;
    for (const int seconds : {-1, 0, 1}) {
      MAX_TIME_FOR_VLAV = seconds;
      const auto start = Clock::now();
      EXPECT_EQ(linesCall(), NETSIFT_SCAN_NOT_RUNNING);
      EXPECT_GE(Clock::now() - start, milliseconds(seconds < 1 ? 0 : 990));
      EXPECT_LT(Clock::now() - start, milliseconds(seconds < 1 ? 500 : 3000));
    }
  }
}

TEST(VirusScan, WhatIsGivenUpHalfWayStaysOpenButStrictly) {
  const auto silent = [](int) {};
  const auto broken = [](int fd) { say(fd, "421 busy\n"), readToEnd(fd); };
  const std::tuple<const char *, ScriptedDaemon::Script, int32_t (*)(), int> cases[] = {
      {nullptr, silent, scanCall, 1},        {nullptr, silent, clamdCall, 1}, {nullptr, silent, linesCall, 1},
      {"vlcavd.sock", silent, clamdCall, 1}, {"vlav", silent, linesCall, 1},  {"vlav", silent, scanCall, 0},
      {"vlav", broken, linesCall, 0}};
  const auto openOnes = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  MAX_TIME_FOR_VLAV = 5;
  for (const auto &[socket, script, ask, leftOpen] : cases) {
    for (const int strict : {0, 1}) {
      StrictHttp = strict;
      const ScratchRoot root;
      const auto before = openOnes();
      std::optional<ScriptedDaemon> engine;
      if (socket != nullptr) engine.emplace(root, socket, script);
      EXPECT_LE(ask(), 0);
      engine.reset();
      EXPECT_EQ(openOnes() - before, strict == 1 ? 0 : leftOpen) << (socket == nullptr ? "nobody" : socket) << strict;
    }
  }
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
  EXPECT_EQ(getAVRespCode(GuardedText("23").get()), 182); /* the third character counts as code 0 */
}

const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\n\r\n";

/* A connection in a scratch root, with the engines that have an answer. */
struct Scene {
  ScratchRoot root;
  LogCapture log{2};
  SocketPair client, upstream;
  int scans = 0;
  std::optional<ScriptedDaemon> vlav, vlcav;

  explicit Scene(const char *vlavAnswer, const char *vlcavAnswer = nullptr) {
    std::filesystem::current_path(root.path());
    url = strdup("host/a.zip");
    clientsock = client.near;
    respheader = makeHeader({"HTTP/1.1 200 OK", "Content-Type: application/zip"});
    auto script = [this](const char *answer) { return [=, this](int fd) { scans++, readOnce(fd), say(fd, answer); }; };
    if (vlavAnswer != nullptr) vlav.emplace(root, "vlav", script(vlavAnswer));
    if (vlcavAnswer != nullptr) vlcav.emplace(root, "vlcavd.sock", script(vlcavAnswer));
  }
  ~Scene() { destroyHeader(&respheader), free(std::exchange(url, nullptr)); }
  int32_t relay(size_t size, unsigned contentLength, unsigned threshold) {
    upstream.send(std::string(size, '#')), upstream.closeFar();
    return tunnel_vs(client.near, upstream.near, 5, 1, 1, contentLength, threshold);
  }
};

TEST(ScanTunnel, VerdictsOfTwoEnginesAreCombined) {
  const char *dead = nullptr, *hit = "a FOUND\n", *bad = "a ERROR\n";
  const std::tuple<const char *, const char *, int> cases[] = {{"2 x", "OK", 1}, {"0", hit, 1},   {"0", bad, 0},
                                                               {"0", dead, 0},   {dead, hit, 1},  {"32", "OK", 0},
                                                               {dead, bad, -2},  {dead, dead, -1}};
  for (const auto &[vlav, vlcav, verdict] : cases) {
    const Scene scene(vlav, vlcav);
    EXPECT_EQ(isVirusInfection("/f", nullptr, 1, 1), verdict) << (vlav ? vlav : "dead") << (vlcav ? vlcav : "dead");
  }
}

TEST(ScanTunnel, OnlyTheTailWaitsForScans) {
  /* Blocks end at every 8192 bytes; the tail begins at the threshold, or at exactly the announced length. */
  const std::tuple<size_t, unsigned, unsigned, int> cases[] = {
      {20000, 20000, 11808, 2}, {8192, 8192, 9000, 1}, {16384, 1, 8192, 2}, {16384, 1, 16385, 0}};
  for (const auto &[size, contentLength, threshold, scans] : cases) {
    Scene scene("0");
    EXPECT_EQ(scene.relay(size, contentLength, threshold), 0) << size;
    EXPECT_EQ(scene.client.receive(), head + std::string(size, '#'));
    scene.vlav.reset();
    EXPECT_EQ(scene.scans, scans) << size << " " << threshold;
    EXPECT_EQ(readFile(virfilename).size(), size);
  }
}

TEST(ScanTunnel, WhatIsNotCleanOrCannotBeScannedIsHeldBack) {
  const std::tuple<const char *, const char *, const char *> cases[] = {
      {"2 x", "OK", "Client IP:,URL:host/a.zip,STATUS:BLOCKED,Infected Content:Virus-x"},
      {"32", nullptr, "--Anti Virus Server is not running"},
      {nullptr, "ERROR", "Error in scanning for virus"}};
  for (const auto &[vlav, vlcav, line] : cases) {
    Scene scene(vlav, vlcav);
    EXPECT_EQ(scene.relay(20000, 20000, 11808), -9) << line;
    const std::string got = scene.client.receive(), before = head + std::string(8192, '#');
    EXPECT_TRUE(got.starts_with(before + "HTTP/1.1 200 OK\r\n") && got.ends_with("\r\n\r\n")) << got;
    EXPECT_TRUE(scene.log.has(line)) << line;
  }
  for (const char *folder : {"./missing/", "./a-folder-name-that-does-not-fit-the-fifty-bytes/", "./"}) {
    Scene scene("0");
    strcpy(VIRFILE_DIR, folder);
    std::filesystem::create_symlink("/dev/full", "scanfile." + std::to_string(getpid()));
    EXPECT_EQ(scene.relay(4, 4, 0), 0) << folder;
    EXPECT_EQ(scene.client.receive(), "") << folder;
  }
}
