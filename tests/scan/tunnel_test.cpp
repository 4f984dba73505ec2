#include "scan/tunnel.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>

#include "tests/support/support.h"
#include "util/installPath.h"

struct Tunnels : testing::Test {
  SocketPair client, upstream;
  LogCapture log{4};
  Tunnels() { strcpy(clientip, "10.1.2.3"); }
};

TEST_F(Tunnels, EndOnSilenceFailedSendsAndDescriptorsThatAreNotOpen) {
  StrictHttp = STRICT_HTTP;
  errno = EINTR; /* left over from an earlier call */
  EXPECT_EQ(tunnel(client.near, upstream.near, 0), 0);
  StrictHttp = 0;
  errno = 0;
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

TEST_F(Tunnels, WaitAgainAfterAnInterruptionLongPast) {
  std::thread late([&] { std::this_thread::sleep_for(std::chrono::milliseconds(50)), upstream.closeFar(); });
  const auto start = std::chrono::steady_clock::now();
  errno = EINTR;
  EXPECT_EQ(tunnel(client.near, upstream.near, 0), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
  late.join();
}

TEST_F(Tunnels, OneBlockOrTheClientsTurn) {
  upstream.send(string(10000, 'p'));
  client.send("GET /next"); /* both readable: upstream's block goes out, the client's bytes stay unread */
  tunnel1(client.near, upstream.near, 100);
  EXPECT_EQ(client.receive(), string(8192, 'p'));
  tunnel1(client.near, upstream.near, 100);
  EXPECT_EQ(client.receive(), string(1808, 'p'));
  tunnel1(client.near, upstream.near, -1);
  EXPECT_EQ(recv(client.near, string(9, ' ').data(), 9, MSG_DONTWAIT), 9);
  EXPECT_EQ(log.messages().size(), 2u); /* a size line each, no closing line */
}

TEST_F(Tunnels, KeepATranscriptOrGoOnWithoutOne) {
  const ScratchRoot scratch;
  upstream.send("\xff%s");
  client.send("hello");
  shutdown(client.far, SHUT_WR);
  writeFile(scratch.log("10.1.2.3.log"), "before");
  testing::internal::CaptureStdout();
  for (string place : {string(installroot), string("/nowhere"), string(300, 'r')}) {
    char *const kept = std::exchange(installroot, place.data());
    EXPECT_EQ(tunnellog(client.near, upstream.near, 100), 0);
    installroot = kept;
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error opening tunnel file");
  EXPECT_TRUE(log.has("in tunnel times read from client 1, times read from proxy 1"));
  const string text = readFile(scratch.log("10.1.2.3.log"));
  EXPECT_TRUE(text.starts_with("before\n")) << text;
  EXPECT_EQ(text.substr(31), " 10.1.2.3 ::New Tunnel Started---> \n\nClient:hello\nProxy:\xff%s\nClient:");
}
