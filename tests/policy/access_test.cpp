#include <ctime>

#include "log/accessLog.h"
#include "policy/accessList.h"
#include "tests/support/support.h"

TEST(AccessList, GrantsTheHighestLevelThatAppliesNow) {
  const uint32_t net = 0x0A010000, mask = ~0xFFFFu;
  setenv("TZ", "UTC0", 1);
  tzset();
  int minute, granted;
  do {
    minute = static_cast<int>(time(nullptr) / 60 % 1440);
    AclEntry entries[] = {{net, mask, minute, minute, 4},
                          {net, mask, 0, 1439, 3},
                          {net, mask, minute + 1, 1440, 9},
                          {net, mask, -1, minute - 1, 8},
                          {0xC0A80000, mask, 0, 1439, -128}};
    acllist = entries;
    numacllist = 5;
    granted = getAccessControl(0x0A010203);
    EXPECT_EQ(getAccessControl(0xC0A80101), 2); /* no level above 0 */
  } while (time(nullptr) / 60 % 1440 != minute);
  EXPECT_EQ(granted, 4);
}

TEST(AccessLog, AppendsOneLineOfFiveFields) {
  const netsift::test::ScratchRoot root;
  std::string name = "access", longUrl = "a.com/\"\n" + std::string(100000, 'u');
  logfilename = name.data();
  strcpy(clientip, "10.1.2.3");
  storeLog("A", "B", 1); /* the log is off */
  logenable = 1;
  storeLog("IP Blocking", nullptr, 0);
  url = longUrl.data();
  storeLog("Virus", "Infected Content", 0);
  const std::string text = netsift::test::readFile(root.log(name)), first = text.substr(0, text.find('\n'));
  EXPECT_EQ(first.substr(26), " \"10.1.2.3\" \"\" \"IP Blocking\" \"\"") << "behind 24 bytes of time in quotes";
  EXPECT_EQ(text.substr(first.size() + 27), " \"10.1.2.3\" \"" + longUrl + "\" \"Virus\" \"Infected Content\"\n");
}
