#include "cache/dbcache.h"

#include <gdbm.h>

#include <filesystem>

#include "tests/support/support.h"

using namespace netsift::test;

constexpr const char *date = "Sun, 06 Nov 1994 08:49:37 GMT";

struct Cache {
  ScratchRoot root;
  std::string path = root.path() + "/opt/Velmora/var/nscache.db";
  Cache() { gdbm_close(open(GDBM_NEWDB)); }
  GDBM_FILE open(int mode) const { return gdbm_open(path.c_str(), 512, mode, 0666, nullptr); }
};

TEST(DbCache, RecordsAreThreeNumbersRunTogetherUnderTheTerminatedUrl) {
  const Cache cache;
  const std::string longest(256, 'u'), tooLong(257, 'u');
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1); /* local standard time, whatever was converted before */
  EXPECT_EQ(convertTimeToEpoch("Sat, 01 Jul 2023 12:00:00 GMT"), 1688209200);
  EXPECT_EQ(convertTimeToEpoch("Sun, 29 Oct 2023 02:30:00 GMT"), 1698543000);
  setenv("TZ", "UTC0", 1);
  for (const char *day : {"Sun, 06 Nov 94", date, "Fri, 13 Dec 1901 20:45:52 GMT"}) { /* the last: eleven characters */
    for (int flag : {0, 2, 7}) {
      EXPECT_EQ(addto_urlcache_db(tooLong.c_str(), day, flag), -1); /* leaves no lock behind */
      EXPECT_EQ(addto_urlcache_db(longest.c_str(), day, flag), 1);
      EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), day), flag == 7 ? -1 : flag) << day;
    }
    EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), "Sun, 06 Nov 1994 08:49:38 GMT"), -1);
  }
  EXPECT_EQ(addto_urlcache_db("host", date, 1), 1);
  EXPECT_EQ(UpdateDB("host", cache.path.c_str()), -1); /* its key lacks the zero byte that the record's has */
  const std::string value = take(SearchTok("host", cache.path.c_str()));
  EXPECT_EQ(value.substr(0, 9) + value.substr(19), "7841117771");
  for (std::string stored : {"7841117771", ""}) { /* as another program might: without a zero byte */
    GDBM_FILE file = cache.open(GDBM_WRITER);
    char key[] = "bare";
    gdbm_store(file, {key, sizeof key}, {stored.data(), static_cast<int>(stored.size())}, GDBM_REPLACE);
    gdbm_close(file);
    EXPECT_EQ(if_url_scanned_check_ok("bare", date), stored.empty() ? -1 : 1);
  }
}

TEST(DbCache, LockedCutShortOrMissingFilesAreMissesAndNothingWorse) {
  const Cache cache;
  auto asked = [] { return if_url_scanned_check_ok("host", date) + addto_urlcache_db("host", date, 0); };
  GDBM_FILE writer = cache.open(GDBM_WRITER);
  EXPECT_EQ(asked(), -2); /* without waiting */
  gdbm_close(writer);
  std::filesystem::resize_file(cache.path, 100);
  EXPECT_EQ(asked(), -2);
  std::filesystem::remove(cache.path);
  EXPECT_EQ(asked(), -2);
  EXPECT_FALSE(std::filesystem::exists(cache.path));
}
