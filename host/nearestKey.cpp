#include "host/nearestKey.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "host/settingsTable.h"

namespace netsift::host {

namespace {

size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); i++) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); j++) {
      size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestKey(std::string_view unknown) {
  std::string_view last = unknown.substr(unknown.rfind('.') + 1);
  std::string nearest;
  size_t least = last.size() / 3 + 2;
  bool sameKey = false;
  auto consider = [&](const std::string &candidate, bool same) {
    size_t distance = candidate.starts_with(unknown) ? 1 : editDistance(unknown, candidate);
    if (same != sameKey ? same : distance < least) {
      nearest = candidate;
      least = distance;
      sameKey = same;
    }
  };
  for (const Setting &setting : settings()) {
    consider(fullKey(setting), setting.key == last);
    if (!setting.section.empty()) consider(setting.section, false);
  }
  return nearest;
}

}  // namespace netsift::host
