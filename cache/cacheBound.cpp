#include "cache/cacheBound.h"

#include <gdbm.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "log/debugLog.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr uint32_t storesShare = 256, roomShare = 64, mostStores = 1000;

datum datumOf(std::string &bytes) { return {bytes.data(), static_cast<int>(bytes.size())}; }

/* The keys that follow one in the database's own order, and behind its end those from its start: fewer than there are,
   so that the one itself is not among them. */
std::vector<std::string> keysBehind(GDBM_FILE file, const std::string &first, size_t count) {
  std::vector<std::string> keys;
  std::string key = first;
  while (keys.size() < count) {
    datum next = gdbm_nextkey(file, datumOf(key));
    if (next.dptr == nullptr) next = gdbm_firstkey(file);
    if (next.dptr == nullptr) break;
    key.assign(next.dptr, static_cast<size_t>(next.dsize));
    std::free(next.dptr);
    keys.push_back(key);
  }
  return keys;
}

void removeSome(GDBM_FILE file, const char *key, uint32_t most) {
  gdbm_count_t count = 0;
  if (gdbm_count(file, &count) != 0 || count <= most) return;
  const std::string first(key, std::strlen(key) + 1);
  for (std::string &each : keysBehind(file, first, count - most + most / roomShare)) gdbm_delete(file, datumOf(each));
  dprintf(4, "The verdict cache had %lu entries, and is brought below %u\n", static_cast<unsigned long>(count), most);
}

}  // namespace

void boundCache(const char *database, const char *key) {
  if (CacheMaxEntries <= 0 || database == nullptr) return;
  const auto most = static_cast<uint32_t>(CacheMaxEntries);
  if (arc4random_uniform(std::clamp(most / storesShare, 1U, mostStores)) != 0) return;
  GDBM_FILE file = gdbm_open(database, 0, GDBM_WRITER | GDBM_FAST | GDBM_NOMMAP, 0666, nullptr);
  if (file == nullptr) return; /* another is at it: the next time */
  removeSome(file, key, most);
  gdbm_close(file);
}

}  // namespace netsift
