#include "host/tunnelRelay.h"

#include <sys/mman.h>
#include <sys/wait.h>

#include "host/clock.h"
#include "host/handOver.h"
#include "host/hostConfig.h"
#include "netsift.h"
#include "tests/support/scriptedDaemon.h"

using namespace netsift::host;

namespace {

class TunnelRelay : public testing::Test {
 protected:
  TunnelRelay() {
    hostConfig.maxTunnels = 3;
    void *shared = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    board = new (shared) Board{};
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    relay = fork();
    if (relay == 0) {
      close(ends[0]);
      relayTunnels(ends[1], board->tunnels[0]);
    }
    close(ends[1]);
    handOverTunnels(ends[0], board);
  }
  ~TunnelRelay() override {
    kill(relay, SIGKILL);
    waitpid(relay, nullptr, 0);
  }

  /* Gives a tunnel between the two near ends away and forgets them, as a worker does. */
  static bool give(SocketPair &client, SocketPair &upstream, int idleSeconds = -1) {
    const bool taken = netsift_handOver(client.near, upstream.near, idleSeconds, "h:443") == 1;
    close(std::exchange(client.near, dup(client.far)));
    close(std::exchange(upstream.near, dup(upstream.far)));
    return taken && wasHandedOver();
  }

  bool awaitTunnels(int count, int64_t within = 5000) {
    for (int64_t end = milliseconds() + within; milliseconds() < end; usleep(2000)) {
      if (board->tunnels[0] == count) return true;
    }
    return false;
  }

  Board *board;
  pid_t relay;
};

}  // namespace

/* More than every buffer on the way holds, in both directions at once, to receivers that wait first. */
TEST_F(TunnelRelay, LosesNothingToSlowReceivers) {
  SocketPair client, upstream;
  ASSERT_TRUE(give(client, upstream));
  std::mt19937 random(7);
  std::string sent[2], received[2];
  for (std::string &each : sent) {
    each.resize(8'000'000);
    std::generate(each.begin(), each.end(), [&random] { return static_cast<char>(random()); });
  }
  const int ends[] = {client.far, upstream.far};
  std::vector<std::thread> threads;
  for (int i : {0, 1}) {
    threads.emplace_back([&, i] {
      for (size_t from = 0; from < sent[i].size();)
        from += static_cast<size_t>(std::max<ssize_t>(0, send(ends[i], &sent[i][from], sent[i].size() - from, 0)));
      shutdown(ends[i], SHUT_WR);
    });
    threads.emplace_back([&, i] {
      usleep(200'000);
      received[i] = readToEnd(ends[i]);
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_TRUE(received[0] == sent[1] && received[1] == sent[0])
      << received[0].size() << " and " << received[1].size() << " bytes";
  EXPECT_TRUE(awaitTunnels(0));
}

/* So much that it is taken in turns, over TCP, where nothing more happens that would tell of the rest. */
TEST_F(TunnelRelay, TakesAllThatWaitedBeforeItCame) {
  SocketPair client(AF_INET), upstream(AF_INET);
  const std::string much(600'000, 'x');
  for (size_t sent = 0; sent < much.size();)
    sent += static_cast<size_t>(std::max<ssize_t>(0, send(client.far, &much[sent], much.size() - sent, MSG_DONTWAIT)));
  ASSERT_TRUE(give(client, upstream));
  const timeval patience{5, 0};
  setsockopt(upstream.far, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  std::string received(much.size(), '\0');
  EXPECT_EQ(recv(upstream.far, received.data(), received.size(), MSG_WAITALL), static_cast<ssize_t>(much.size()));
}

TEST_F(TunnelRelay, AnIdleTunnelEndsAndABusyOneDoesNot) {
  SocketPair idle, idleSite, busy, busySite, endless, endlessSite;
  const int64_t began = milliseconds();
  ASSERT_TRUE(give(idle, idleSite, 1) && give(busy, busySite, 2) && give(endless, endlessSite, -1));
  for (int i = 0; i < 7; i++) {
    busy.send("x");
    usleep(500'000);
  }
  EXPECT_EQ(readToEnd(idle.far), "");
  EXPECT_EQ(busySite.receive(), "xxxxxxx");
  EXPECT_TRUE(awaitTunnels(1, 6000)) << "the one without limit";
  EXPECT_GT(milliseconds() - began, 5000);
}

TEST_F(TunnelRelay, ABrokenSideEndsTheOther) {
  SocketPair client, upstream;
  ASSERT_TRUE(give(client, upstream));
  ASSERT_TRUE(awaitTunnels(1));
  close(std::exchange(client.near, -1));
  client.closeFar();
  upstream.send("to nobody");
  EXPECT_TRUE(awaitTunnels(0));
  EXPECT_EQ(readToEnd(upstream.far), "");
}
