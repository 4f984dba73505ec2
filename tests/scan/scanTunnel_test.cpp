#include "scan/scanTunnel.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <optional>

#include "http/httpHeader.h"
#include "state/connection.h"
#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

using namespace netsift::test;

namespace {

const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\n\r\n";

/* A connection in a scratch root, with the two engines as far as they run; each scan's request is kept. */
struct Scene {
  ScratchRoot root;
  LogCapture log{7};
  SocketPair client, upstream;
  std::vector<std::string> scans;
  std::optional<ScriptedDaemon> vlav, vlcav;

  Scene() {
    if (chdir(root.path().c_str()) != 0) std::abort();
    std::strcpy(VIRFILE_DIR, "./");
    std::strcpy(clientip, "10.1.2.3");
    url = strdup("host/file.zip");
    static char accessLog[] = "access";
    logfilename = accessLog;
    logenable = 1;
    clientsock = client.near;
    respheader = makeHeader({"HTTP/1.1 200 OK", "Content-Type: application/zip"});
    writeFile(root.config("template.htm"), "<p>%r</p>");
  }
  ~Scene() {
    destroyHeader(&respheader);
    free(url);
  }

  /* Without an answer (null) the engine does not run. */
  void startEngines(const char *vlavAnswer, const char *vlcavAnswer) {
    auto start = [this](std::optional<ScriptedDaemon> &engine, const char *name, const char *answer) {
      auto script = [this, answer](int fd) { scans.push_back(readOnce(fd)), say(fd, answer); };
      if (answer != nullptr) engine.emplace(root.path() + "/opt/Velmora/var/run/" + name, script);
    };
    start(vlav, "vlav", vlavAnswer);
    start(vlcav, "vlcavd.sock", vlcavAnswer);
  }
  int32_t relay(const std::string &body, unsigned contentLength, unsigned threshold) {
    upstream.send(body);
    upstream.closeFar();
    return tunnel_vs(client.near, upstream.near, 5, 1, 0, contentLength, threshold);
  }
  std::string spooled() const { return readFile("scanfile." + std::to_string(getpid())); }
};

TEST(ScanTunnel, VerdictsOfTwoEnginesAreCombined) {
  const char *dead = nullptr;
  const struct {
    int useVlav, useVlcav;
    const char *vlav, *vlcav;
    int32_t verdict;
    size_t asked;
  } cases[] = {
      {1, 1, "2 Marker", "FOUND\n", 1, 1},
      {1, 1, "0", "FOUND\n", 1, 2},
      {1, 1, "0", "OK\n", 0, 2},
      {1, 1, "0", "ERROR\n", 0, 2},
      {1, 1, "0", dead, 0, 1},
      {1, 1, dead, "FOUND\n", 1, 1},
      {1, 1, "32", "OK\n", 0, 2},
      {1, 1, dead, "ERROR\n", -2, 1},
      {1, 1, dead, dead, -1, 0},
      {1, 0, "32", "OK\n", -1, 1},
      {1, 2, "0", "FOUND\n", 0, 1},
      {0, 1, "2 x", "FOUND\n", 1, 1},
      {0, 1, "0", dead, -1, 0},
      {0, 0, "2 x", "FOUND\n", 0, 0},
      {3, 0, "2 x", dead, 0, 0},
  };
  for (const auto &c : cases) {
    const std::string shown = std::to_string(&c - cases);
    Scene scene;
    scene.startEngines(c.vlav, c.vlcav);
    char name[256];
    EXPECT_EQ(isVirusInfection("/f", name, c.useVlav, c.useVlcav), c.verdict) << shown;
    scene.vlav.reset(), scene.vlcav.reset();
    EXPECT_EQ(scene.scans.size(), c.asked) << shown;
  }
}

TEST(ScanTunnel, CleanBodiesArriveWholeAndOnlyTheTailWaitsForScans) {
  const struct {
    size_t size;
    unsigned contentLength, threshold;
    size_t scans;
  } cases[] = {{20000, 20000, 11808, 2},  // blocks end at 8192, 16384 and 20000
               {8193, 8193, 1, 2},       {500, 500, 0, 1},       {8192, 8192, 9000, 1},  // exactly the length: the tail
               {16384, 16384, 8192, 2},  {16384, 100, 16385, 0}, {20000, 100, 0, 3}};    // longer than announced
  for (const auto &c : cases) {
    Scene scene;
    std::string body(c.size, '\0');
    for (size_t i = 0; i < c.size; i++) body[i] = static_cast<char>(i * 7);
    scene.startEngines("0", nullptr);
    EXPECT_EQ(scene.relay(body, c.contentLength, c.threshold), 0) << c.size;
    EXPECT_TRUE(scene.client.receive() == head + body) << c.size;
    EXPECT_TRUE(scene.spooled() == body) << c.size;
    scene.vlav.reset();
    EXPECT_EQ(scene.scans, std::vector<std::string>(c.scans, std::string("SCAN 0 ") + virfilename)) << c.size;
    EXPECT_TRUE(scene.log.has("in tunnel times read from client 0, times read from proxy 1"));
  }
}

TEST(ScanTunnel, WhatIsNotCleanEndsInTheBlockPage) {
  const struct {
    const char *answer, *why, *line;
    bool logged;
  } cases[] = {
      {"2 Marker", "Content is infected\n",
       "Client IP:10.1.2.3,URL:host/file.zip,STATUS:BLOCKED,Infected Content:Virus-Marker", true},
      {"32", "Anti Virus Server Not Running\n", "--Anti Virus Server is not running", false},
      {nullptr, "Anti Virus Server Not Running\n", "--Anti Virus Server is not running", false},
  };
  for (const auto &c : cases) {
    for (const bool small : {true, false}) {
      Scene scene;
      scene.startEngines(c.answer, nullptr);
      const std::string body(small ? 500 : 20000, 'b');
      EXPECT_EQ(scene.relay(body, static_cast<unsigned>(body.size()), small ? 0 : 11808), -9) << c.why;
      const std::string got = scene.client.receive(), sentBefore = small ? "" : head + body.substr(0, 8192);
      EXPECT_EQ(got.substr(0, sentBefore.size() + 15), sentBefore + "HTTP/1.1 200 OK") << c.why;
      EXPECT_EQ(got.substr(got.size() - 7 - std::strlen(c.why)), std::string("<p>") + c.why + "</p>");
      EXPECT_EQ(got.find('b', sentBefore.size()), got.npos) << got;  // nothing of the held block
      EXPECT_STREQ(reason, c.why);
      EXPECT_TRUE(scene.log.has(c.line)) << c.line;
      EXPECT_EQ(scene.spooled(), body.substr(0, 16384));
      const std::string record = readFile(scene.root.log("access"));
      EXPECT_EQ(record.find("\"Virus\" \"Infected Content\"") != record.npos, c.logged) << record;
      EXPECT_EQ(url, nullptr);
    }
  }
}

TEST(ScanTunnel, SecondEngineFailsAtScanning) {
  Scene scene;
  scene.startEngines(nullptr, "/f: read ERROR\n");
  scene.upstream.send("body");
  EXPECT_EQ(tunnel_vs(scene.client.near, scene.upstream.near, 5, 0, 1, 4, 0), -9);
  EXPECT_STREQ(reason, "Error In Scanning For Virus\n");
}

TEST(ScanTunnel, ScanFileThatCannotBeKeptHoldsTheBodyBack) {
  for (const char *fault : {"long path", "no folder", "disk full"}) {
    Scene scene;
    scene.startEngines("0", nullptr);
    const bool full = *fault == 'd';
    if (*fault == 'l') std::memset(VIRFILE_DIR, 'd', sizeof VIRFILE_DIR);  // not even a zero byte
    if (*fault == 'n') std::strcpy(VIRFILE_DIR, "./missing/");
    if (full && symlink("/dev/full", ("scanfile." + std::to_string(getpid())).c_str()) != 0) std::abort();
    EXPECT_EQ(scene.relay(std::string(500, 'x'), 500, 0), 0) << fault;
    EXPECT_EQ(scene.client.receive(), "") << fault;
    EXPECT_TRUE(scene.log.has(full ? "error writing to virus file" : "error creating virus scan file")) << fault;
    EXPECT_EQ(virfile, nullptr);
  }
}

TEST(ScanTunnel, ClientBytesGoUpUnscannedAndAClosedClientEndsTheRelay) {
  Scene scene;
  scene.client.send("more of the request");
  shutdown(scene.client.far, SHUT_WR);
  EXPECT_EQ(tunnel_vs(scene.client.near, scene.upstream.near, 5, 1, 1, 100, 0), 0);
  EXPECT_EQ(scene.upstream.receive(), "more of the request");
  EXPECT_EQ(scene.spooled(), "");
  EXPECT_TRUE(scene.log.has("URL:host/file.zip,NUMBER OF BYTES 19"));
  EXPECT_TRUE(scene.log.has("URL:host/file.zip,NUMBER OF BYTES 0"));
}

}  // namespace
