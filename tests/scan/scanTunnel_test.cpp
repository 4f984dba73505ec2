#include "scan/scanTunnel.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <utility>

#include "http/httpHeader.h"
#include "state/connection.h"
#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"

using namespace netsift::test;

const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\n\r\n";

/* A connection in a scratch root, with the engines that have an answer. */
struct Scene {
  ScratchRoot root;
  LogCapture log{2};
  SocketPair client, upstream;
  int scans = 0;
  std::optional<ScriptedDaemon> vlav, vlcav;

  explicit Scene(const char *vlavAnswer, const char *vlcavAnswer = nullptr) {
    if (chdir(root.path().c_str()) != 0) std::abort();
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
  const std::vector<std::tuple<int, int, const char *, const char *, int>> cases = {
      {1, 1, "2 x", "OK", 1}, {1, 1, "0", hit, 1},   {1, 1, "0", bad, 0},   {1, 1, "0", dead, 0},
      {1, 1, dead, hit, 1},   {1, 1, "32", "OK", 0}, {1, 1, dead, bad, -2}, {1, 1, dead, dead, -1},
      {1, 2, "0", hit, 0},    {0, 1, "2 x", bad, -2}};
  for (const auto &[useVlav, useVlcav, vlav, vlcav, verdict] : cases) {
    const Scene scene(vlav, vlcav);
    EXPECT_EQ(isVirusInfection("/f", nullptr, useVlav, useVlcav), verdict) << useVlav << useVlcav << verdict;
  }
}

TEST(ScanTunnel, OnlyTheTailWaitsForScans) {
  // Blocks end at every 8192 bytes; the tail begins at the threshold, or at exactly the announced length.
  const std::vector<std::tuple<size_t, unsigned, unsigned, int>> cases = {
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
  const std::vector<std::tuple<const char *, const char *, const char *>> cases = {
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
    if (symlink("/dev/full", ("scanfile." + std::to_string(getpid())).c_str()) != 0) std::abort();
    EXPECT_EQ(scene.relay(4, 4, 0), 0) << folder;
    EXPECT_EQ(scene.client.receive(), "") << folder;
  }
}
