#include "scan/virusWhitelist.h"

#include <gdbm.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "http/requestUrl.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/settings.h"
#include "util/stringIntHash.h"

namespace {

/* The key as the map holds it, so that it can be freed once its pair is removed; null when it is absent. */
char *storedKey(string_int_hash *entries, const char *key) {
  auto position = string_int_hash_first(entries);
  while (string_int_hash_done(&position) == 0 && string_equal(string_int_hash_key(&position), key) == 0) {
    string_int_hash_next(&position);
  }
  return string_int_hash_key(&position);
}

/* Acts on one line of a whitelist file, line end included; `distinct` counts the entries stored so far. */
void applyLine(string_int_hash *entries, const char *line, int32_t &distinct) {
  if (line[0] == '?') {
    const int32_t *value = string_int_hash_get(entries, line + 1);
    const int32_t shown = value == nullptr ? 0 : *value;
    std::printf("%d occurrence%s seen\n", shown, shown == 1 ? "" : "s");
    return;
  }
  if (line[0] == '-') {
    char *removed = storedKey(entries, line + 1);
    string_int_hash_remove(entries, line + 1);
    std::free(removed);
    std::fputs("Removed", stdout);
    return;
  }
  if (int32_t *value = string_int_hash_get(entries, line)) {
    ++*value;
    return;
  }
  char *copy = strdup(line);
  const int32_t before = entries->entries;
  string_int_hash_set(entries, copy, distinct);
  if (entries->entries == before) { /* memory is short */
    std::free(copy);
  } else {
    distinct++;
  }
}

void readEntries(string_int_hash *entries, const char *path) {
  FILE *file = std::fopen(path, "r");
  if (file == nullptr) return;
  char line[256];
  int32_t distinct = 0;
  while (std::fgets(line, sizeof line, file) != nullptr && !std::feof(file)) applyLine(entries, line, distinct);
  std::fclose(file);
}

}  // namespace

int32_t inVirusWhiteList_hash(const char *text, const char *path) {
  if (text == nullptr || path == nullptr) return 0;
  string_int_hash *entries = string_int_hash_new();
  if (entries == nullptr) return 0;
  readEntries(entries, path);

  int32_t found = 0;
  for (auto position = string_int_hash_first(entries); !string_int_hash_done(&position);
       string_int_hash_next(&position)) {
    char *entry = string_int_hash_key(&position);
    if (std::strstr(text, Trim(entry)) != nullptr) found = 1;
    std::free(entry);
  }
  string_int_hash_clear(entries);
  std::free(entries);
  return found;
}

int32_t inVirusWhiteList(const char *text) {
  if (text == nullptr) return 0;
  const std::string_view searched(text);
  for (const char(&slot)[100] : viruswhitelist) {
    const std::string_view entry(slot, strnlen(slot, sizeof slot));
    if (entry.empty()) return 0;
    if (searched.find(entry) == searched.npos) continue;
    dprintf(7, "The listed domain is:[%.*s]", static_cast<int>(entry.size()), entry.data());
    return 1;
  }
  return 0;
}

int32_t isDom_vir_wl(const char *database, const char *domain) {
  if (database == nullptr || domain == nullptr) return 0;
  GDBM_FILE file = gdbm_open(database, 0, GDBM_READER | GDBM_NOMMAP, 0666, nullptr);
  if (file == nullptr) return 0;

  int32_t found = 0;
  datum key = gdbm_firstkey(file);
  while (key.dptr != nullptr && found == 0) {
    if (gdbm_exists(file, key) != 0) {
      /* Nothing says that a key ends in a zero byte. */
      const std::string text(key.dptr, static_cast<size_t>(key.dsize));
      found = std::strstr(domain, text.c_str()) != nullptr;
      dprintf(7, "%s:%d::key=[%s]::domain=[%s]::ret=[%d]\n", __func__, __LINE__, text.c_str(),
              netsift::peerText(domain), found);
    }
    const datum next = found != 0 ? datum{} : gdbm_nextkey(file, key);
    std::free(key.dptr);
    key = next;
  }
  gdbm_close(file);
  return found;
}
