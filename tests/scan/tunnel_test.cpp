#include "scan/tunnel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "state/connection.h"
#include "tests/support/support.h"
#include "util/installPath.h"

using namespace netsift::test;
using std::string;

struct Tunnels : testing::Test {
  SocketPair client, upstream;
  LogCapture log{4};
  Tunnels() { strcpy(clientip, "10.1.2.3"); }
};

TEST_F(Tunnels, RelayBothWaysAndCountTurns) {
  string got(20000, ' ');
  auto take = [&](const SocketPair &pair, size_t size) { recv(pair.far, got.data(), size, MSG_WAITALL); };
  std::thread talk([&] {
    client.send("one");
    take(upstream, 3);
    client.send("two");
    take(upstream, 3);
    upstream.send(string(20000, 'p'));
    take(client, 20000);
    client.send("bye");
    take(upstream, 3);
    upstream.closeFar();
  });
  EXPECT_EQ(tunnel(client.near, upstream.near, -1), 0);
  talk.join();
  EXPECT_TRUE(got == "bye" + string(19997, 'p'));
  EXPECT_EQ(log.messages().back(), "tunnel(): in tunnel times read from client 2, times read from proxy 1");
  EXPECT_TRUE(log.has("CLIENT IP:10.1.2.3,URL:,SIZE=0"));
}

TEST_F(Tunnels, EndOnSilenceFailedSendsAndDescriptorsThatAreNotOpen) {
  errno = EINTR;  // left over from an earlier call
  EXPECT_EQ(tunnel(client.near, upstream.near, 0), 0);
  EXPECT_EQ(tunnel(client.near, -1, -1), 0);
  EXPECT_EQ(tunnel(999, upstream.near, -1), 0);
  const rlimit wide{4096, 4096};
  setrlimit(RLIMIT_NOFILE, &wide);
  signal(SIGPIPE, SIG_IGN);
  client.send("x");
  upstream.closeFar();
  EXPECT_EQ(tunnel(fcntl(client.near, F_DUPFD, 1100), upstream.near, -1), 0);
}

TEST_F(Tunnels, OneBlockOrTheClientsTurn) {
  upstream.send(string(10000, 'p'));
  tunnel1(client.near, upstream.near, 100);
  EXPECT_EQ(client.receive(), string(8192, 'p'));
  client.send("GET /next");  // both readable: upstream's block goes out, the client's bytes stay unread
  tunnel1(client.near, upstream.near, 100);
  EXPECT_EQ(client.receive(), string(1808, 'p'));
  tunnel1(client.near, upstream.near, -1);
  EXPECT_EQ(recv(client.near, string(9, ' ').data(), 9, MSG_DONTWAIT), 9);
  EXPECT_EQ(log.messages().size(), 2u);  // a size line each, no closing line
  upstream.closeFar();
  EXPECT_EQ(tunnel1(client.near, upstream.near, 100), 0);
  EXPECT_EQ(log.messages().back(), "tunnel1(): in tunnel times read from client 0, times read from proxy 0");
}

TEST_F(Tunnels, KeepATranscriptOrGoOnWithoutOne) {
  ScratchRoot scratch;
  char *const root = installroot;
  upstream.send("\xff%s");
  client.send("hello");
  shutdown(client.far, SHUT_WR);
  writeFile(scratch.log("10.1.2.3.log"), "before");
  testing::internal::CaptureStdout();
  for (string place : {string(root), string("/nowhere"), string(300, 'r')}) {
    installroot = place.data();
    EXPECT_EQ(tunnellog(client.near, upstream.near, 100), 0);
  }
  installroot = root;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error opening tunnel file");
  EXPECT_TRUE(log.has("in tunnel times read from client 1, times read from proxy 1"));
  string text = readFile(scratch.log("10.1.2.3.log"));
  text.replace(7, 24, "Sun Nov 22 21:25:00 2026");
  EXPECT_EQ(text,
            "before\nSun Nov 22 21:25:00 2026 10.1.2.3 ::New Tunnel Started---> \n"
            "\nClient:hello\nProxy:\xff%s\nClient:");
}
