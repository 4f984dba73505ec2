#include "cache/dbcache.h"

#include <gdbm.h>
#include <sys/file.h>

#include <ctime>
#include <filesystem>

#include "cache/recalledVerdicts.h"
#include "tests/support/support.h"

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
  EXPECT_EQ(convertTimeToEpoch("Sun, 26 Mar 2023 02:30:00 GMT"), 1679794200); /* an hour that summer time leaves out */
  setenv("TZ", "UTC0", 1);
  /* the fourth: eleven characters */
  for (const char *day : {"Sun, 06 Nov 94", "Sun, 06 Nov 1994 08:49:37 UTC", date, "Fri, 13 Dec 1901 20:45:52 GMT"}) {
    for (int flag : {3, 0, 2}) {
      EXPECT_EQ(addto_urlcache_db(tooLong.c_str(), day, flag), -1); /* leaves no lock behind */
      EXPECT_EQ(addto_urlcache_db(longest.c_str(), day, flag), 1);
      EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), day), flag == 3 ? -1 : flag) << day;
    }
    EXPECT_EQ(if_url_scanned_check_ok(longest.c_str(), "Sun, 06 Nov 1994 08:49:38 GMT"), NETSIFT_NOT_CACHED);
  }
  EXPECT_EQ(convertTimeToEpoch("Sun, 06 Nov 1994 08:49:37 UTC"), 784111777);
  EXPECT_EQ(convertTimeToEpoch("Sun, 06 Nov 1994 08:49:3 UTC"), 784111743);
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

/* A zone of two standard times, from 4 to 3 hours ahead at 2014-10-25 22:00 UTC: 01:00 to 02:00 comes twice that night.
   Which of the two is meant must not depend on the season of the date converted before. */
TEST(DbCache, ADateInAnHourThatComesTwiceHasOneNumber) {
  const ScratchRoot root;
  const char zone[] =
      "TZif\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"             /* version and padding */
      "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0\2\0\0\0\4" /* one transition, two types, four characters */
      "\x54\x4C\x1D\x60\1"
      "\0\0\x38\x40\0\0"
      "\0\0\x2A\x30\0\0"
      "STD";
  writeFile(root.path() + "/zone", std::string(zone, sizeof zone));
  setenv("TZ", (":" + root.path() + "/zone").c_str(), 1);
  const char *twice = "Sun, 26 Oct 2014 01:30:00 GMT", *before = "Tue, 01 Jul 2014 00:00:00 GMT";
  const int32_t first = convertTimeToEpoch(twice);
  EXPECT_EQ(convertTimeToEpoch(before), 1404158400); /* 4 hours ahead: the zone was read */
  EXPECT_EQ(convertTimeToEpoch(twice), first);
  EXPECT_EQ(convertTimeToEpoch("Thu, 01 Jan 2015 00:00:00 GMT"), 1420059600);
  EXPECT_EQ(convertTimeToEpoch(twice), first);
}

/* Nothing but what was recalled is told of a file that is locked. */
TEST(DbCache, AVerdictIsRecalledWithoutTheFileUntilThatChanges) {
  const Cache cache;
  for (int flag : {0, 1}) {
    ASSERT_EQ(addto_urlcache_db("host", date, flag), 1);
    int asked = -1;
    for (const time_t end = time(nullptr) + 20; asked < 0 && time(nullptr) < end; usleep(10'000)) {
      ASSERT_EQ(netsift::recallVerdict("host", date), flag); /* not recalled later while it has just changed */
      GDBM_FILE file = cache.open(GDBM_READER);
      flock(gdbm_fdesc(file), LOCK_EX);
      asked = netsift::recallVerdict("host", date);
      gdbm_close(file);
    }
    EXPECT_EQ(asked, flag);
    EXPECT_EQ(netsift::recallVerdict("host", "Sun, 06 Nov 1994 08:49:38 GMT"), -1);
    EXPECT_EQ(netsift::recallVerdict("ghost", date), -1);
  }
}

TEST(DbCache, KeepsNoMoreThanItsBoundAndTheNewestAlways) {
  const Cache cache;
  const std::pair<int32_t, gdbm_count_t> cases[] = {{0, 300}, {1000, 600}, {130, 130}, {1, 1}};
  int number = 0;
  for (const auto &[bound, most] : cases) {
    CacheMaxEntries = bound;
    std::string url;
    for (int i = 0; i < 300; i++) {
      url = "h/" + std::to_string(number++);
      ASSERT_EQ(addto_urlcache_db(url.c_str(), date, 0), 1);
      ASSERT_EQ(if_url_scanned_check_ok(url.c_str(), date), 0) << bound;
    }
    GDBM_FILE file = cache.open(GDBM_READER);
    gdbm_count_t count = 0;
    gdbm_count(file, &count);
    gdbm_close(file);
    EXPECT_LE(count, most) << bound;
    EXPECT_GE(count + 3, most) << bound; /* a 64th went too */
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
