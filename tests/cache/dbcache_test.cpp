#include "cache/dbcache.h"

#include <gdbm.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "tests/support/support.h"

using namespace netsift::test;

namespace {

constexpr const char *date = "Sun, 06 Nov 1994 08:49:37 GMT";

struct Cache {
  ScratchRoot root;
  std::string path = root.path() + "/opt/Velmora/var/nscache.db";
  Cache() { store("bare", "", GDBM_NEWDB); }
  void store(std::string key, std::string value, int mode = GDBM_WRITER) const {
    GDBM_FILE file = gdbm_open(path.c_str(), 512, mode, 0666, nullptr);
    gdbm_store(file, {key.data(), static_cast<int>(key.size())}, {value.data(), static_cast<int>(value.size())},
               GDBM_REPLACE);
    gdbm_close(file);
  }
};

TEST(DbCache, RecordsAreThreeNumbersRunTogetherUnderTheTerminatedUrl) {
  const Cache cache;
  const std::string longest(256, 'u'), tooLong(257, 'u');
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);  // local standard time, whatever was converted before
  EXPECT_EQ(convertTimeToEpoch("Sat, 01 Jul 2023 12:00:00 GMT"), 1688209200);
  EXPECT_EQ(convertTimeToEpoch("Sun, 29 Oct 2023 02:30:00 GMT"), 1698543000);
  setenv("TZ", "UTC0", 1);
  for (const char *day : {"Sun, 06 Nov 94", date, "Fri, 13 Dec 1901 20:45:52 GMT"}) {  // the last: eleven characters
    for (int flag : {0, 1, 2, 7}) {
      EXPECT_EQ(addto_urlcache_db(tooLong.c_str(), day, flag), -1);  // leaves no lock behind
      EXPECT_EQ(addto_urlcache_db(longest.c_str(), day, flag), 1);
      EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), day), flag == 7 ? -1 : flag) << day;
    }
    EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), "Sun, 06 Nov 1994 08:49:38 GMT"), -1);
  }
  EXPECT_EQ(addto_urlcache_db("host", date, 1), 1);
  EXPECT_EQ(UpdateDB("host", cache.path.c_str()), -1);  // its key lacks the zero byte that the record's has
  const std::string value = take(SearchTok("host", cache.path.c_str()));
  EXPECT_EQ(value.substr(0, 9) + value.substr(19), "7841117771");
  for (const char *stored : {"7841117771", ""}) {  // as another program might: without a zero byte
    cache.store(std::string("bare\0", 5), stored);
    EXPECT_EQ(if_url_scanned_check_ok("bare", date), *stored == '\0' ? -1 : 1);
  }
  testing::internal::CaptureStderr();
  EXPECT_EQ(DumpDB(cache.path.c_str()), 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("-\n|host\t\t|" + value + "\t\t|\n---"), std::string::npos);
}

TEST(DbCache, MissingLockedOrDamagedFilesAreMissesAndNothingWorse) {
  const Cache cache;
  GDBM_FILE writer = gdbm_open(cache.path.c_str(), 0, GDBM_WRITER, 0666, nullptr);
  EXPECT_EQ(if_url_scanned_check_ok("bare", date) + addto_urlcache_db("host", date, 0), -2);  // without waiting
  gdbm_close(writer);
  for (int i = 0; i < 60; i++) cache.store("host/" + std::to_string(i), "7841117771");
  const std::string good = readFile(cache.path);
  std::mt19937 random(1);
  for (size_t round = 0; round < 200; round++) {
    std::string bad = good;
    if (round % 3 == 0) bad.resize(random() % good.size());
    if (round % 3 == 1) std::generate(bad.begin() + static_cast<long>(random() % 4096), bad.end(), std::ref(random));
    for (size_t i = 0; round % 3 == 2 && i < 8; i++) bad[random() % (i < 4 ? 256 : good.size())] = '\x81';
    writeFile(cache.path, bad);
    testing::internal::CaptureStderr();
    EXPECT_LE(if_url_scanned_check_ok("host", date) + DumpDB(cache.path.c_str()), 3) << round;
    EXPECT_LE(addto_urlcache_db("host", date, 2) + UpdateDB("host/7", cache.path.c_str()), 1) << round;
    testing::internal::GetCapturedStderr();
  }
  std::filesystem::remove(cache.path);
  EXPECT_EQ(if_url_scanned_check_ok("host", date) + addto_urlcache_db("host", date, 0), -2);
  EXPECT_FALSE(std::filesystem::exists(cache.path));
}

}  // namespace
