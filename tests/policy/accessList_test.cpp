#include "policy/accessList.h"

#include <gtest/gtest.h>

#include <ctime>

#include "state/settings.h"

namespace {

int minuteNow() {
  const time_t now = time(nullptr);
  return localtime(&now)->tm_hour * 60 + localtime(&now)->tm_min;
}

TEST(AccessList, GrantsTheHighestLevelThatAppliesNow) {
  int minute, granted;
  do {
    minute = minuteNow();
    AclEntry entries[] = {{0x0A010000, ~0xFFFFu, minute, minute, 4},     {0x0A010000, ~0xFFFFu, 0, 1439, 3},
                          {0x0A010000, ~0xFFFFu, minute + 1, 1440, 9},   {0x0A010000, ~0xFFFFu, -1, minute - 1, 8},
                          {0x0A010000, ~0xFFFFu, minute + 1, minute, 7}, {0xC0A80000, ~0xFFFFu, 0, 1439, -128}};
    acllist = entries;
    numacllist = 6;
    granted = getAccessControl(0x0A010203);
    EXPECT_EQ(getAccessControl(0xC0A80101), 2); /* no level above 0 */
    EXPECT_EQ(getAccessControl(0x0B010203), 2); /* no entry */
  } while (minuteNow() != minute);
  EXPECT_EQ(granted, 4);
}

}  // namespace
