#include "policy/accessList.h"

#include <algorithm>
#include <ctime>

#include "state/settings.h"

namespace {

constexpr int defaultLevel = 2;

int minuteOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local.tm_hour * 60 + local.tm_min;
}

}  // namespace

int getAccessControl(uint32_t address) {
  const int minute = minuteOfDay();
  int8_t level = 0;
  for (int32_t i = 0; i < numacllist; i++) {
    const AclEntry &entry = acllist[i];
    if ((address & entry.mask) == entry.network && entry.from <= minute && minute <= entry.to) {
      level = std::max(level, entry.level);
    }
  }
  return level == 0 ? defaultLevel : level;
}
