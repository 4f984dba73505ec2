#include "http/dial.h"

#include <fcntl.h>

#include <ctime>

#include "http/siteAddresses.h"
#include "tests/support/resolver.h"
#include "tests/support/support.h"

using namespace std::chrono_literals;

namespace {

std::string texts(const std::vector<SocketAddress> &addresses) {
  std::string all;
  for (const SocketAddress &address : addresses) all += (all.empty() ? "" : " ") + endpointText(address);
  return all;
}

/* A listener of the test's; one that is silent has its queue full, so that the next connect is not answered. */
struct Place {
  SocketAddress address{};
  std::vector<int> sockets;
  explicit Place(const std::string &text, bool silent = false) {
    if (!parseEndpoint(text, &address)) std::abort();
    sockets.push_back(socket(address.any.sa_family, SOCK_STREAM, 0));
    socklen_t size = sizeof address;
    if (bind(sockets[0], &address.any, sizeOf(address)) | listen(sockets[0], silent ? 0 : 9)) std::abort();
    getsockname(sockets[0], &address.any, &size);
    for (int i = 0; silent && i < 2; i++) {
      sockets.push_back(socket(address.any.sa_family, SOCK_STREAM | SOCK_NONBLOCK, 0));
      (void)!connect(sockets.back(), &address.any, sizeOf(address));
    }
  }
  void close() {
    for (const int fd : sockets) ::close(fd);
    sockets.clear();
  }
  ~Place() { close(); }
};

struct Outcome {
  Wait wait;
  std::string address;
  int error;
  std::chrono::milliseconds took;
};

Outcome outcomeOf(const std::vector<SocketAddress> &addresses, int milliseconds, int client = nobody) {
  const auto start = std::chrono::steady_clock::now();
  const Dialled dialled = dial(addresses, milliseconds, client);
  const int error = errno;
  EXPECT_EQ(dialled.fd >= 0, dialled.wait == Wait::ready);
  if (dialled.fd >= 0) {
    EXPECT_EQ(fcntl(dialled.fd, F_GETFL) & O_NONBLOCK, 0);
    ::close(dialled.fd);
  }
  return {dialled.wait, endpointText(dialled.address), error,
          std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)};
}

}  // namespace

TEST(dial, aSilentAddressIsOvertakenAndTriedLastForAWhile) {
  const Place silent("127.0.0.2:0", true), good("127.0.0.1:0");
  const auto begin = std::chrono::steady_clock::now();
  const Outcome first = outcomeOf({silent.address, good.address}, 10000);
  EXPECT_TRUE(first.wait == Wait::ready && first.address == endpointText(good.address));
  EXPECT_TRUE(first.took >= 240ms && first.took < 3s) << first.took.count();
  const std::vector<SocketAddress> both = {silent.address, good.address};
  EXPECT_EQ(texts(dialOrder(both)), texts({good.address, silent.address}));
  std::vector<SocketAddress> otherPort = both;
  for (SocketAddress &address : otherPort) setPort(address, 9);
  EXPECT_EQ(texts(dialOrder(otherPort)), texts(otherPort));
  EXPECT_EQ(texts(dialOrder(both, begin + failureLifetime + 5s)), texts(both));
  const Outcome late = outcomeOf({silent.address}, 300);
  EXPECT_TRUE(late.wait == Wait::timedOut && late.error == ETIMEDOUT && late.took >= 290ms);
}

TEST(dial, aRefusalIsFollowedAtOnceAndTheLastOneTold) {
  std::vector<SocketAddress> refusing;
  for (const char *text : {"127.0.0.1:0", "127.0.0.2:0", "127.0.0.3:0", "127.0.0.4:0", "127.0.0.5:0", "127.0.0.6:0"}) {
    Place gone(text);
    gone.close();
    refusing.push_back(gone.address);
  }
  const Outcome none = outcomeOf(refusing, 10000);
  const Place fresh("127.0.0.7:0");
  EXPECT_EQ(texts(dialOrder({refusing[0], fresh.address})), texts({fresh.address, refusing[0]}));
  EXPECT_TRUE(none.wait == Wait::failed && none.error == ECONNREFUSED && none.took < 1s) << none.took.count();
  const Place silent("127.0.0.8:0", true), good("127.0.0.9:0");
  refusing.insert(refusing.begin(), silent.address);
  refusing.push_back(good.address);
  const Outcome found = outcomeOf(refusing, -1); /* one pause for the silent one */
  EXPECT_TRUE(found.wait == Wait::ready && found.address == endpointText(good.address) && found.took < 1400ms);
}

TEST(dial, aClientThatLeavesEndsIt) {
  const Place silent("127.0.0.2:0", true);
  SocketPair client;
  std::thread leaves([&] { std::this_thread::sleep_for(100ms), client.closeFar(); });
  const Outcome outcome = outcomeOf({silent.address}, 10000, client.near);
  leaves.join();
  EXPECT_TRUE(outcome.wait == Wait::clientLeft && outcome.took < 5s);
  SocketPair half; /* sends no more, and may be waiting for its answer */
  shutdown(half.far, SHUT_WR);
  const Place good("127.0.0.1:0");
  const clock_t used = clock();
  EXPECT_EQ(outcomeOf({silent.address}, 700, half.near).wait, Wait::timedOut);
  EXPECT_LT(clock() - used, CLOCKS_PER_SEC / 20) << "nothing is to be done while it is waited";
  EXPECT_EQ(outcomeOf({silent.address, good.address}, 10000, half.near).wait, Wait::ready);
}

TEST(dial, familiesInTurnAndIPv6First) {
  const std::pair<std::vector<const char *>, const char *> cases[] = {
      {{"192.0.2.1", "192.0.2.2", "2001:db8::1"}, "[2001:db8::1]:0 192.0.2.1:0 192.0.2.2:0"},
      {{"2001:db8::2", "2001:db8::1", "192.0.2.1", "2001:db8::3"},
       "[2001:db8::2]:0 192.0.2.1:0 [2001:db8::1]:0 [2001:db8::3]:0"},
      {{"192.0.2.2", "192.0.2.1"}, "192.0.2.2:0 192.0.2.1:0"},
      {{}, ""}};
  for (const auto &[given, expected] : cases) {
    std::vector<SocketAddress> addresses;
    for (const char *text : given) parseHost(text, &addresses.emplace_back());
    EXPECT_EQ(texts(dialOrder(addresses)), expected);
  }
}

TEST(siteAddresses, literalsAreTheirOwnAndNamesRememberedForSeconds) {
  const std::pair<const char *, const char *> literals[] = {
      {"192.0.2.1", "192.0.2.1:81"}, {"[2001:db8::1]", "[2001:db8::1]:81"}, {"[::ffff:192.0.2.1]", "192.0.2.1:81"}};
  for (const auto &[host, expected] : literals) EXPECT_EQ(texts(siteAddresses(host, 81)), expected);
  EXPECT_EQ(resolverCalls, 0);

  const auto now = std::chrono::steady_clock::now();
  testHosts["a.test"] = {"192.0.2.1", "2001:db8::1"};
  EXPECT_EQ(texts(siteAddresses("a.test", 80, now)), "192.0.2.1:80 [2001:db8::1]:80");
  testHosts["a.test"] = {"192.0.2.2"};
  EXPECT_EQ(texts(siteAddresses("a.test", 443, now + nameLifetime - 1ms)), "192.0.2.1:443 [2001:db8::1]:443");
  EXPECT_EQ(texts(siteAddresses("a.test", 80, now + nameLifetime)), "192.0.2.2:80");
  EXPECT_EQ(texts(siteAddresses("none.test", 80, now)) + texts(siteAddresses("none.test", 80, now)), "");
  EXPECT_EQ(resolverCalls, 4) << "what is not found is asked for again";

  for (int i = 0; i < 64; i++) {
    testHosts[std::to_string(i) + ".test"] = {"192.0.2.9"};
    siteAddresses(std::to_string(i) + ".test", 80, now + nameLifetime + std::chrono::seconds(i));
  }
  EXPECT_EQ(resolverCalls, 68);
  siteAddresses("63.test", 80, now + nameLifetime + 64s);
  EXPECT_EQ(resolverCalls, 68);
  siteAddresses("a.test", 80, now + nameLifetime);
  EXPECT_EQ(resolverCalls, 69) << "the oldest has made room";
  testHosts["many.test"] = std::vector<const char *>(20, "192.0.2.1");
  EXPECT_EQ(siteAddresses("many.test", 80).size(), mostSiteAddresses);
}
