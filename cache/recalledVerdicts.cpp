#include "cache/recalledVerdicts.h"

#include <sys/stat.h>

#include <array>
#include <ctime>
#include <functional>

#include "cache/dbcache.h"
#include "util/installPath.h"
#include "util/ownedText.h"

namespace netsift {
namespace {

constexpr size_t mostRecalled = 256;
/* Stamps go in steps, of a few milliseconds mostly: a file that changed just now may change again unseen. */
constexpr time_t settledSeconds = 1;

/* A state of the file. Its change time, unlike the others, cannot be set. */
struct FileState {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  timespec changed{};
};

struct Recalled {
  std::string url, date;
  FileState file;
  int32_t verdict;
};

FileState stateOf(const char *path) {
  struct stat found;
  if (path == nullptr || stat(path, &found) != 0) return {};
  return {found.st_dev, found.st_ino, found.st_size, found.st_ctim};
}

bool isSame(const FileState &one, const FileState &other) {
  return one.device == other.device && one.number == other.number && one.size == other.size &&
         one.changed.tv_sec == other.changed.tv_sec && one.changed.tv_nsec == other.changed.tv_nsec;
}

bool isSettled(const FileState &file) { return time(nullptr) - file.changed.tv_sec > settledSeconds; }

}  // namespace

int32_t recallVerdict(const std::string &url, const char *date) {
  static std::array<Recalled, mostRecalled> recalled;
  if (date == nullptr) return -1;
  const FileState now = stateOf(installPath({verdictFile}).get()); /* before it is read: a change meanwhile shows */
  Recalled &slot = recalled[std::hash<std::string>()(url) % mostRecalled];
  if (slot.url == url && slot.date == date && isSame(slot.file, now)) return slot.verdict;
  const int32_t verdict = if_url_scanned_check_ok(url.c_str(), date);
  if (verdict >= 0 && isSettled(now)) slot = {url, date, now, verdict};
  return verdict;
}

}  // namespace netsift
