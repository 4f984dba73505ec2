#include "http/wait.h"

#include <sys/time.h>

#include <cerrno>

#include "tests/support/support.h"

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

enum class Client { stays, closes, resets };

TEST(Wait, NoticesAClientThatLeaves) {
  /* What the client does, whether over TCP and when the answer is there, what the wait says, and whether it is gone. */
  const std::tuple<Client, bool, bool, Wait, bool> cases[] = {
      {Client::stays, true, false, Wait::timedOut, false},
      {Client::closes, true, false, Wait::timedOut, false}, /* which may be half of it */
      {Client::closes, false, false, Wait::clientLeft, true},
      {Client::resets, true, false, Wait::clientLeft, true},
      {Client::resets, true, true, Wait::ready, true}};
  for (const auto &[does, tcp, answered, expected, isGone] : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(does) << tcp << answered);
    SocketPair peer, client(tcp ? AF_INET : AF_UNIX); /* only over TCP a reset is one */
    client.send("GET");                               /* what it has sent and nobody has read changes nothing */
    if (answered) peer.send("x");
    const linger none{1, 0};
    if (does == Client::resets) setsockopt(client.far, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    std::thread leaving([&client, leaves = does != Client::stays, delay = answered ? 0ms : 20ms] {
      std::this_thread::sleep_for(delay);
      if (leaves) client.closeFar();
    });
    if (answered) leaving.join();
    const auto start = Clock::now();
    EXPECT_EQ(waitReadable(peer.near, 150, client.near), expected);
    EXPECT_GE(Clock::now() - start, expected == Wait::timedOut ? 145ms : 0ms);
    if (leaving.joinable()) leaving.join();
    EXPECT_EQ(hasLeft(client.near), isGone);
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
