#include "cache/dbcache.h"

#include <gdbm.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>

#include "tests/support/support.h"

using namespace netsift::test;

namespace {

constexpr const char *date = "Sun, 06 Nov 1994 08:49:37 GMT", *otherDate = "Sun, 06 Nov 1994 08:49:38 GMT";

struct Cache {
  ScratchRoot root;
  std::string path = root.path() + "/opt/Velmora/var/nscache.db";
  Cache() { gdbm_close(gdbm_open(path.c_str(), 512, GDBM_NEWDB, 0666, nullptr)); }
  void store(std::string key, std::string value) const {
    GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_WRITER, 0666, nullptr);
    gdbm_store(file, {key.data(), static_cast<int>(key.size())}, {value.data(), static_cast<int>(value.size())},
               GDBM_REPLACE);
    gdbm_close(file);
  }
};

TEST(DbCache, DatesAreLocalStandardTimeWhateverCameBefore) {
  const struct {
    const char *zone, *text;
    int32_t seconds;
  } cases[] = {{"UTC0", date, 784111777},
               {"UTC0", "sun, 6 Nov 1994   08:49:37 GMT and more", 784111777},
               {"UTC0", "Sunday, 06-Nov-94 08:49:37 GMT", 0},
               {"UTC0", "Sun, 06 Nov 1994 08:49", 0},
               {"UTC0", "", 0},
               {"UTC0", "Tue, 19 Jan 2038 03:14:08 GMT", INT32_MIN},  // cut to 32 bits
               {"CET-1CEST,M3.5.0,M10.5.0/3", "Sat, 01 Jul 2023 12:00:00 GMT", 1688209200},
               {"CET-1CEST,M3.5.0,M10.5.0/3", "Sun, 29 Oct 2023 02:30:00 GMT", 1698543000},
               {"CET-1CEST,M3.5.0,M10.5.0/3", "Sun, 29 Oct 2023 02:30:00 GMT", 1698543000}};
  for (const auto &c : cases) {
    setenv("TZ", c.zone, 1);
    EXPECT_EQ(convertTimeToEpoch(c.text), c.seconds) << c.text;
    convertTimeToEpoch("Sat, 01 Jul 2023 12:00:00 GMT");
  }
  EXPECT_EQ(convertTimeToEpoch(nullptr), 0);
}

TEST(DbCache, RecordsAreThreeNumbersRunTogetherUnderTheTerminatedUrl) {
  Cache cache;
  setenv("TZ", "UTC0", 1);
  const std::string before = std::to_string(std::time(nullptr));
  EXPECT_EQ(addto_urlcache_db("host/a", date, 1), 1);
  const std::string value = take(SearchTok("host/a", cache.path.c_str()));
  EXPECT_EQ(value.substr(0, 9), "784111777");
  EXPECT_GE(value.substr(9, 10), before);
  EXPECT_EQ(value.substr(19), "1");

  EXPECT_EQ(if_url_scanned_check_ok("host/a", date), 1);
  EXPECT_EQ(if_url_scanned_check_ok("host/a", otherDate), -1);
  EXPECT_EQ(if_url_scanned_check_ok("host/a", nullptr), -1);
  EXPECT_EQ(if_url_scanned_check_ok("host/", date), -1);
  EXPECT_EQ(addto_urlcache_db("host/a", nullptr, 1), -1);
  for (int flag : {0, 2, 7, -2}) {  // replaced each time; a negative flag shows its last digit
    EXPECT_EQ(addto_urlcache_db("host/a", otherDate, flag), 1);
    EXPECT_EQ(if_url_scanned_check_ok("host/a", otherDate), flag == 7 ? -1 : std::abs(flag)) << flag;
  }
  EXPECT_EQ(addto_urlcache_db("host/old", "Fri, 13 Dec 1901 20:45:52 GMT", 2), 1);
  EXPECT_EQ(if_url_scanned_check_ok("host/old", "Fri, 13 Dec 1901 20:45:52 GMT"), 2);  // eleven characters

  EXPECT_EQ(UpdateDB("host/a", cache.path.c_str()), -1);  // its key has no zero byte, the record's has one
  EXPECT_EQ(if_url_scanned_check_ok("host/a", otherDate), 2);
  cache.store("bare", "1");
  EXPECT_EQ(UpdateDB("bare", cache.path.c_str()), 0);
}

TEST(DbCache, KeysOfMoreThan256CharactersAreRefusedAndLeaveNothingBehind) {
  Cache cache;
  const std::string longest(256, 'u'), tooLong(257, 'u');
  EXPECT_EQ(addto_urlcache_db(tooLong.c_str(), date, 0), -1);
  cache.store(tooLong + '\0', "7841117770");
  EXPECT_EQ(take(SearchTok(tooLong.c_str(), cache.path.c_str())), "<none>");
  EXPECT_EQ(addto_urlcache_db(longest.c_str(), date, 0), 1);  // neither lock nor busy flag is in the way
  EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), date), 0);
  EXPECT_EQ(UpdateDB(tooLong.c_str(), cache.path.c_str()), 0);
}

TEST(DbCache, ForeignRecordsAndTheDump) {
  Cache cache;
  cache.store(std::string("bare\0", 5), "7841117771");  // value without its zero byte
  cache.store(std::string("empty\0", 6), "");
  cache.store(std::string("zero\0", 5), std::string(1, '\0'));
  setenv("TZ", "UTC0", 1);
  EXPECT_EQ(if_url_scanned_check_ok("bare", date), 1);
  EXPECT_EQ(take(SearchTok("empty", cache.path.c_str())), "<none>");
  EXPECT_EQ(if_url_scanned_check_ok("zero", date), -1);

  cache.store(std::string("empty\0", 6), "x");
  testing::internal::CaptureStderr();
  EXPECT_EQ(DumpDB(cache.path.c_str()), 1);
  const std::string printed = testing::internal::GetCapturedStderr(), rule = std::string(51, '-') + "\n";
  EXPECT_NE(printed.find(rule + "|bare\t\t|7841117771\t\t|\n" + rule), std::string::npos) << printed;
  EXPECT_EQ(printed.substr(printed.size() - rule.size()), rule);
}

/* The file is whatever a crash, a full disk or another program made of it. */
TEST(DbCache, DamagedFilesAreMissesAndNothingWorse) {
  Cache cache;
  for (int i = 0; i < 60; i++) addto_urlcache_db(("host/" + std::to_string(i)).c_str(), date, 0);
  const std::string good = readFile(cache.path);
  std::mt19937 random(1);
  for (int round = 0; round < 400; round++) {
    std::string bad = good;
    if (round % 4 == 0) bad.resize(random() % good.size());
    if (round % 4 == 1) bad = std::string(random() % 8192, static_cast<char>(random()));
    if (round % 4 == 2)
      std::generate(bad.begin() + static_cast<long>(random() % good.size()), bad.end(), std::ref(random));
    if (round % 4 == 3) {
      for (int i = 0; i < 8; i++) bad[random() % (i < 4 ? 256 : good.size())] = static_cast<char>(random());
    }
    writeFile(cache.path, bad);
    testing::internal::CaptureStderr();
    const int32_t found = if_url_scanned_check_ok("host/7", date);
    EXPECT_TRUE(found >= -1 && found <= 2) << round;
    DumpDB(cache.path.c_str());
    addto_urlcache_db("host/new", date, 2);
    UpdateDB("host/7", cache.path.c_str());
    testing::internal::GetCapturedStderr();
  }
  writeFile(cache.path, good);
  EXPECT_EQ(if_url_scanned_check_ok("host/7", date), 0);
}

TEST(DbCache, MissingLockedOrUnusableFile) {
  Cache cache;
  LogCapture log(7);
  EXPECT_EQ(addto_urlcache_db("host/a", date, 0), 1);
  GDBM_FILE writer = gdbm_open(cache.path.c_str(), 0, GDBM_WRITER, 0666, nullptr);
  EXPECT_EQ(if_url_scanned_check_ok("host/a", date), -1);  // at once, without waiting
  EXPECT_EQ(addto_urlcache_db("host/b", date, 0), -1);
  EXPECT_EQ(UpdateDB("host/a", cache.path.c_str()), 0);
  EXPECT_EQ(DumpDB(cache.path.c_str()), 0);
  gdbm_close(writer);
  EXPECT_EQ(if_url_scanned_check_ok("host/a", date), 0);

  for (const char *what : {"missing", "folder"}) {
    std::filesystem::remove(cache.path);
    if (*what == 'f') std::filesystem::create_directory(cache.path);
    EXPECT_EQ(if_url_scanned_check_ok("host/a", date), -1) << what;
    EXPECT_EQ(addto_urlcache_db("host/a", date, 0), -1) << what;
  }
  EXPECT_TRUE(log.has("URL Not found in Cache."));
  EXPECT_TRUE(log.has("Error in opening dbfile " + cache.path));
}

}  // namespace
