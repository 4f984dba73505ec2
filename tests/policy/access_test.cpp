#include <ctime>

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
