#include "host/accessRules.h"

#include <algorithm>
#include <ctime>

#include "host/hostConfig.h"
#include "policy/accessList.h"

namespace netsift::host {

namespace {

constexpr int8_t defaultLevel = 2; /* as the library's list has it */

int32_t minuteOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local.tm_hour * 60 + local.tm_min;
}

bool holds(const SixRule &rule, const in6_addr &client, int32_t minute) {
  if (minute < rule.from || rule.to < minute) return false;
  for (size_t i = 0; i < sizeof client.s6_addr; i++) {
    if ((client.s6_addr[i] & rule.mask.s6_addr[i]) != rule.network.s6_addr[i]) return false;
  }
  return true;
}

}  // namespace

int accessLevel(const SocketAddress &client) {
  if (!isSix(client)) return getAccessControl(client.four.sin_addr.s_addr); /* in network order, as the rules are */
  if (hostConfig.sixRules.empty()) return defaultLevel;
  const int32_t minute = minuteOfDay();
  int8_t level = 0;
  for (const SixRule &rule : hostConfig.sixRules) {
    if (holds(rule, client.six.sin6_addr, minute)) level = std::max(level, rule.level);
  }
  return level == 0 ? defaultLevel : level;
}

}  // namespace netsift::host
