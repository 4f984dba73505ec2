#include "http/localAddress.h"

#include <ifaddrs.h>

#include "tests/support/support.h"

TEST(localAddress, thoseOfThisMachineInEveryForm) {
  for (const char *host :
       {"127.0.0.1", "127.255.3.4", "0.0.0.0", "169.254.169.254", "2130706433", "[::1]", "[::]", "[fe80::1]",
        "[febf::1]", "[::ffff:127.0.0.1]", "[::ffff:0:1]", "[64:ff9b::127.0.0.1]", "localhost", "a.localhost"})
    EXPECT_TRUE(isLocalHost(host)) << host;
  for (const char *host : {"128.0.0.1", "198.51.100.7", "169.253.1.1", "[fec0::1]", "[2001:db8::1]", "[::ffff:8.8.8.8]",
                           "[64:ff9b::8.8.8.8]", "[x]", "notlocalhost", "localhost.example"})
    EXPECT_FALSE(isLocalHost(host)) << host;
}

TEST(localAddress, thoseThatTheMachineHasItself) {
  ifaddrs *all = nullptr;
  ASSERT_EQ(getifaddrs(&all), 0);
  for (const ifaddrs *each = all; each != nullptr; each = each->ifa_next) {
    const int family = each->ifa_addr == nullptr ? AF_UNSPEC : each->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    EXPECT_TRUE(isLocalAddress(each->ifa_addr)) << each->ifa_name;
  }
  freeifaddrs(all);
}
