#include "http/localAddress.h"

#include <ifaddrs.h>

#include "tests/support/support.h"

using namespace netsift;

TEST(localAddress, thoseOfThisMachineInEveryForm) {
  const std::pair<const char *, bool> cases[] = {
      {"127.0.0.1", true},
      {"127.255.3.4", true},
      {"0.0.0.0", true},
      {"169.254.169.254", true},
      {"128.0.0.1", false},
      {"198.51.100.7", false},
      {"169.253.1.1", false},
      {"2130706433", true},
      {"[::1]", true},
      {"[::]", true},
      {"[fe80::1]", true},
      {"[febf::1]", true},
      {"[fec0::1]", false},
      {"[::ffff:127.0.0.1]", true},
      {"[::ffff:0:1]", true},
      {"[2001:db8::1]", false},
      {"[::ffff:8.8.8.8]", false},
      {"[64:ff9b::127.0.0.1]", true},
      {"[64:ff9b::8.8.8.8]", false},
      {"[x]", false},
      {"localhost", true},
      {"a.localhost", true},
      {"notlocalhost", false},
      {"localhost.example", false},
  };
  for (const auto &[host, expected] : cases) EXPECT_EQ(isLocalHost(host), expected) << host;
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
