#include "http/wait.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/* Makes the pair a TCP connection: only there a reset is one. */
void overTcp(SocketPair &pair) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *any = reinterpret_cast<sockaddr *>(&address);
  ASSERT_EQ(bind(listener, any, size) | listen(listener, 1) | getsockname(listener, any, &size), 0);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(connect(client, any, size), 0);
  const int accepted = accept(listener, nullptr, nullptr);
  dup2(client, pair.far);
  dup2(accepted, pair.near);
  for (const int fd : {listener, client, accepted}) close(fd);
}

void leave(SocketPair &client, bool byReset) {
  const linger none{1, 0};
  if (byReset) setsockopt(client.far, SOL_SOCKET, SO_LINGER, &none, sizeof none);
  client.closeFar();
}

TEST(Wait, NoticesAClientThatLeaves) {
  struct Case {
    const char *what;
    bool tcp, closes, byReset;
    bool peerReady;
    Wait expected;
    bool isGone;
  };
  constexpr Case cases[] = {
      {"stays", true, false, false, false, Wait::timedOut, false},
      {"closes, which over TCP may be half of it", true, true, false, false, Wait::timedOut, false},
      {"closes, no TCP", false, true, false, false, Wait::clientLeft, true},
      {"resets", true, true, true, false, Wait::clientLeft, true},
      {"resets when the answer is there", true, true, true, true, Wait::ready, true},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(one.what);
    SocketPair peer, client;
    if (one.tcp) overTcp(client);
    client.send("GET"); /* what it has sent and nobody has read changes nothing */
    if (one.peerReady) peer.send("x");
    std::thread leaving([&] {
      std::this_thread::sleep_for(one.peerReady ? 0ms : 20ms);
      if (one.closes) leave(client, one.byReset);
    });
    if (one.peerReady) leaving.join();
    const auto start = Clock::now();
    EXPECT_EQ(waitReadable(peer.near, 150, client.near), one.expected);
    if (one.expected == Wait::timedOut) {
      EXPECT_GE(Clock::now() - start, 145ms);
    }
    if (leaving.joinable()) leaving.join();
    EXPECT_EQ(hasLeft(client.near), one.isGone);
  }
}

TEST(Wait, AClientThatSendsNoMoreIsGivenAWhile) {
  SocketPair peer, client;
  ClientWatch watch{client.near};
  shutdown(client.far, SHUT_WR);
  EXPECT_FALSE(hasLeft(watch));
  const auto start = Clock::now();
  EXPECT_EQ(waitReadable(peer.near, 60'000, client.near), Wait::clientLeft);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(halfClosedMilliseconds - 100));
  EXPECT_LT(Clock::now() - start, 50s);
  EXPECT_TRUE(hasLeft(watch));
}

TEST(Wait, TheTimeOfAnInterruptedWaitGoesOn) {
  signal(SIGALRM, [](int) {});
  const itimerval every{{0, 20'000}, {0, 20'000}};
  setitimer(ITIMER_REAL, &every, nullptr);
  const SocketPair pair;
  const auto start = Clock::now();
  EXPECT_EQ(waitReadable(pair.near, 110), Wait::timedOut);
  EXPECT_GE(Clock::now() - start, 105ms);
  EXPECT_LT(Clock::now() - start, 5s);
  EXPECT_EQ(waitOnce(pair.near, POLLIN, 5s), -1);
  EXPECT_EQ(errno, EINTR);
}

TEST(Wait, WhatCannotBeWaitedOnFails) {
  const SocketPair pair;
  pollfd both[] = {{pair.near, POLLOUT, 0}, {-1, POLLIN, 0}};
  for (const int fd : {-1, 1 << 20}) {
    errno = 0;
    EXPECT_EQ(waitReadable(fd, 1000), Wait::failed);
    EXPECT_EQ(errno, EBADF);
    both[1].fd = fd;
    EXPECT_EQ(waitOnce(both, 1s), -1);
  }
  EXPECT_EQ(waitWritable(pair.near, INT64_MAX), Wait::ready);
}

}  // namespace
