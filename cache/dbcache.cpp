#include "cache/dbcache.h"

#include <gdbm.h>
#include <sched.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "cache/cacheBound.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "util/installPath.h"
#include "util/ownedText.h"

namespace {

using netsift::installPath;
using netsift::Text;
using netsift::verdictFile;

constexpr size_t maxKey = 256;
constexpr int blockSize = 2048, mode = 0666;

/* A guard against re-entry; nothing in a single-threaded process ever finds it set. */
volatile std::sig_atomic_t cacheBusy;

/* Not mapped: for one look-up per opening, reads are several times faster than a mapping, and a file cut short or a
   disk that fills up meanwhile is a failed call, not a signal. */
GDBM_FILE openDatabase(const char *path, int size, int flags) {
  return path == nullptr ? nullptr : gdbm_open(path, size, flags | GDBM_NOMMAP, mode, nullptr);
}

/* A text as a key or value; the caller decides whether its zero byte is part of it. GDBM does not write to it. */
datum datumOf(const char *text, size_t length) { return {const_cast<char *>(text), static_cast<int>(length)}; }

std::string textOf(datum record) { return {record.dptr, static_cast<size_t>(record.dsize)}; }

int replaceOrInsert(GDBM_FILE file, const char *key, const char *value) {
  const datum name = datumOf(key, std::strlen(key) + 1);
  const datum record = datumOf(value, std::strlen(value) + 1);
  if (gdbm_exists(file, name) != 0) {
    dprintf(7, "The url [%s] Exists in the database\n", netsift::peerText(key));
    if (gdbm_store(file, name, record, GDBM_REPLACE) == 0) return 1;
    dprintf(7, "The url [%s] can not be replaced in the database\n", netsift::peerText(key));
    return -1;
  }
  dprintf(7, "Inserting into the database\n");
  if (gdbm_store(file, name, record, GDBM_INSERT) == 0) return 1;
  dprintf(7, "The url[%s]can not be inserted in the database\n", netsift::peerText(key));
  return -1;
}

}  // namespace

int32_t convertTimeToEpoch(const char *date) {
  /* Cleared, so that fields the format does not set, the daylight flag above all, are the same at every call. What does
     not parse to its end counts as far as it does: servers that write "UTC" for "GMT" have dates too. */
  std::tm time{};
  if (date == nullptr) return 0;
  strptime(date, "%a, %d %b %Y %H:%M:%S GMT", &time);
  /* Where an hour came twice, mktime's answer depends on the one it gave before: the one before is always this. */
  std::tm fixed{};
  fixed.tm_year = 100;
  fixed.tm_mday = 1;
  std::mktime(&fixed);
  return static_cast<int32_t>(std::mktime(&time));
}

int32_t if_url_scanned_check_ok(const char *url, const char *date) {
  dprintf(7, "inside if_url_scanned_check_ok\n");
  if (url == nullptr || date == nullptr) return -1;
  const Text path = installPath({verdictFile});
  const Text stored(SearchTok(url, path.get()));
  if (!stored) {
    dprintf(7, "URL Not found in Cache.\n");
    return -1;
  }

  const std::string_view value(stored.get());
  if (!value.starts_with(std::to_string(convertTimeToEpoch(date)))) {
    dprintf(7, "Modification date has changed.\n");
    return -1;
  }
  dprintf(7, "Last Modification date matched.\n");
  const char flag = value.back();
  dprintf(7, "Flag =========> %c \n", flag);
  return flag >= '0' && flag <= '2' ? flag - '0' : -1;
}

int32_t addto_urlcache_db(const char *url, const char *date, int flag) {
  dprintf(4, "Inside addto_urlcache_db function\n");
  if (url == nullptr || date == nullptr) {
    dprintf(7, "Error In Inserting URL in cache.\n");
    return -1;
  }
  char value[3 * sizeof "-9223372036854775808"];
  std::snprintf(value, sizeof value, "%ld%ld%d", static_cast<long>(convertTimeToEpoch(date)),
                static_cast<long>(std::time(nullptr)), flag);
  const Text path = installPath({verdictFile});
  const int answer = InsertTok(url, value, path.get());
  if (answer == 1) netsift::boundCache(path.get(), url);
  return answer;
}

char *SearchTok(const char *key, const char *database) {
  if (key == nullptr || std::strlen(key) > maxKey) return nullptr;
  GDBM_FILE file = openDatabase(database, 0, GDBM_READER | GDBM_FAST);
  if (file == nullptr) return nullptr;
  const datum record = gdbm_fetch(file, datumOf(key, std::strlen(key) + 1));
  gdbm_close(file);

  /* Another program may have stored a value without a zero byte at its end. */
  const Text bytes(record.dptr);
  char *value = bytes ? strndup(bytes.get(), static_cast<size_t>(record.dsize)) : nullptr;
  if (value == nullptr) {
    dprintf(7, "In url key NOT found\n");
  } else {
    dprintf(7, "In url key found\n");
  }
  return value;
}

int InsertTok(const char *key, const char *value, const char *database) {
  if (key == nullptr || value == nullptr) return -1;
  dprintf(7, "InsertTok: url [%s] value [%s]\n", netsift::peerText(key), value);
  while (cacheBusy != 0) sched_yield();
  GDBM_FILE file = openDatabase(database, blockSize, GDBM_WRITER | GDBM_FAST | GDBM_SYNC);
  if (file == nullptr) {
    dprintf(7, "Error in opening dbfile %s\n", database == nullptr ? "" : database);
    return -1;
  }
  cacheBusy = 1;
  const int result = std::strlen(key) > maxKey ? -1 : replaceOrInsert(file, key, value);
  cacheBusy = 0;
  gdbm_close(file);
  return result;
}

int UpdateDB(const char *key, const char *database) {
  if (key == nullptr || std::strlen(key) > maxKey) return 0;
  GDBM_FILE file = openDatabase(database, 0, GDBM_WRITER | GDBM_FAST);
  if (file == nullptr) return 0;
  const int result = gdbm_delete(file, datumOf(key, std::strlen(key)));
  gdbm_close(file);
  return result;
}

int DumpDB(const char *database) {
  GDBM_FILE file = openDatabase(database, 0, GDBM_READER | GDBM_FAST);
  if (file == nullptr) return 0;
  const std::string rule(51, '-');
  datum key = gdbm_firstkey(file);
  while (key.dptr != nullptr) {
    const datum record = gdbm_fetch(file, key);
    if (record.dptr != nullptr) {
      std::fprintf(stderr, "%s\n|%s\t\t|%s\t\t|\n", rule.c_str(), textOf(key).c_str(), textOf(record).c_str());
    }
    const datum next = gdbm_nextkey(file, key);
    std::free(record.dptr);
    std::free(key.dptr);
    key = next;
  }
  gdbm_close(file);
  std::fprintf(stderr, "%s\n", rule.c_str());
  return 1;
}
