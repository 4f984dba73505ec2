#include "host/accessRules.h"

#include "host/clientCount.h"
#include "host/configRead.h"
#include "host/hostConfig.h"
#include "tests/support/support.h"

using namespace netsift::host;

namespace {

SocketAddress client(const std::string &text) {
  SocketAddress address;
  if (!parseHost(text, &address)) ADD_FAILURE() << text;
  return address;
}

}  // namespace

TEST(AccessRules, BothFamiliesAsTheConfigurationHasThem) {
  const ScratchRoot root;
  const std::string path = root.config("c.toml");
  std::string rules;
  for (const auto &[network, level] : {std::pair{"2001:db8::/32", 1},
                                       {"10.0.0.0/8", 4},
                                       {"2001:db8:7::ff/41", 3},
                                       {"fd00::5", 5},
                                       {"c000::/2", 4},
                                       {"2001:db8::9/128", 127}})
    rules += "[[access]]\nnetwork = \"" + std::string(network) + "\"\nlevel = " + std::to_string(level) + "\n";
  rules += "[[access]]\nnetwork = \"fd00::/16\"\nfrom = \"00:00\"\nto = \"23:59\"\nlevel = 6\n";
  writeFile(path, rules);
  Problems problems;
  ASSERT_TRUE(readConfiguration(path, problems) && problems.empty());
  const std::pair<const char *, int> cases[] = {
      {"2001:db8:ffff::1", 1}, {"2001:db9::1", 2},   {"2001:db8:7::1", 3},   {"2001:db8:7f:ffff::", 3},
      {"2001:db8:80::", 1},    {"2001:db8::9", 127}, {"fd00::5", 6},         {"fd01::5", 4},
      {"bfff::1", 2},          {"10.1.2.3", 4},      {"::ffff:10.1.2.3", 4}, {"11.0.0.1", 2},
      {"::a01:203", 2}};
  for (const auto &[address, level] : cases) EXPECT_EQ(accessLevel(client(address)), level) << address;
  writeFile(path, "log.ports = true\n");
  ASSERT_TRUE(readConfiguration(path, problems));
  EXPECT_EQ(accessLevel(client("2001:db8::9")), 2) << "rules go with the configuration that had them";
  const SixRule later{{}, {}, 1440, 1440, 3}, earlier{{}, {}, 0, -1, 4}, always{{}, {}, 0, 1439, 5};
  hostConfig.sixRules = {later, earlier};
  EXPECT_EQ(accessLevel(client("::1")), 2);
  hostConfig.sixRules = {later, always, earlier};
  EXPECT_EQ(accessLevel(client("::1")), 5);
}

TEST(ClientCount, WhoCountsAsOneClient) {
  const uint64_t own[] = {0xFD00000000000000, 0};
  const std::tuple<const char *, const char *, bool> cases[] = {{"10.0.0.1", "10.0.0.1", true},
                                                                {"10.0.0.1", "10.0.0.2", false},
                                                                {"::ffff:10.0.0.1", "10.0.0.1", true},
                                                                {"2001:db8::1", "2001:db8::ffff:0:0:1", true},
                                                                {"2001:db8::1", "2001:db8:0:1::1", false},
                                                                {"fd00::1", "fd00::2", false},
                                                                {"fd00::1", "fd00::1", true},
                                                                {"fd00:0:0:1::1", "fd00:0:0:1::2", true},
                                                                {"::1", "::2", false},
                                                                {"fd00::1", "::1", false},
                                                                {"1.0.0.0", "::1", false}};
  for (const auto &[one, other, same] : cases)
    EXPECT_EQ(clientKey(client(one), own) == clientKey(client(other), own), same) << one << " " << other;
  EXPECT_NE(clientKey(client("::1"), {}), 0u);
}
