#include "log/requestLog.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "log/requestFormats.h"
#include "log/requestWriter.h"
#include "tests/support/support.h"
#include "util/escape.h"

using namespace netsift;

namespace {

RequestRecord blocked() {
  RequestRecord made;
  made.began = 1'700'000'000'045'000;
  made.figures = {NETSIFT_REQUEST_BLOCKED, NETSIFT_BLOCK_PHRASES, 1, 403, 0, NETSIFT_SCANNED_CLEAN, 12, 7'900, 2'045};
  made.client = "10.0.0.7";
  made.method = "GET";
  made.url = "http://a.example/x y\n\"\\\xff";
  made.upstream = "[::1]:80";
  made.detail = "Gambling\xC2\x85";
  made.phrases = {{"po\"ker", 60}};
  made.score = 60;
  made.reference = "abcd2345";
  return made;
}

std::string lineOf(int32_t format, const RequestRecord &made) {
  std::string line;
  formatRecord(format, made, line);
  return line;
}

std::vector<std::string> told;
void hear(const char *message) { told.emplace_back(message); }

void write(const std::string &url) {
  RequestRecord made;
  made.method = "GET";
  made.url = url;
  writeRecord(made);
}

}  // namespace

TEST(RequestLog, WritesWhatPeersSentSoThatNoLineCanBeForged) {
  setenv("TZ", "XXX-05:30", 1);
  EXPECT_EQ(lineOf(NETSIFT_LOG_SQUID, blocked()),
            "1700000000.045      7 10.0.0.7 TCP_DENIED/403 12 GET http://a.example/x%20y%0A%22%5C%FF - "
            "HIER_DIRECT/[::1] -\n");
  EXPECT_EQ(lineOf(NETSIFT_LOG_COMBINED, blocked()),
            "10.0.0.7 - - [15/Nov/2023:03:43:20 +0530] \"GET http://a.example/x%20y%0A%22%5C%FF HTTP/1.1\" 403 12 "
            "\"-\" \"-\"\n");
  EXPECT_EQ(lineOf(NETSIFT_LOG_JSON, blocked()),
            R"({"time":"2023-11-15T03:43:20.045+05:30","client":"10.0.0.7","user":null,"method":"GET",)"
            R"("url":"http://a.example/x y\u000A\"\\\uFFFD","status":403,"bytes":12,"ms":7,"type":null,)"
            R"("upstream":"[::1]:80","verdict":"blocked","block":"phrases","category":"Gambling\u0085",)"
            R"("score":60,"phrases":[{"phrase":"po\"ker","weight":60}],"scan":"clean","engine_ms":2.045,)"
            R"("reference":"abcd2345"})"
            "\n");
  RequestRecord malformed;
  malformed.figures.outcome = NETSIFT_REQUEST_ERROR;
  malformed.figures.status = 400;
  EXPECT_EQ(lineOf(NETSIFT_LOG_SQUID, malformed),
            "         0.000      0 - NONE/400 0 NONE error:invalid-request - HIER_NONE/- -\n");
}

TEST(RequestLog, OnlyWellFormedCharactersAreInJson) {
  const std::pair<std::string, const char *> cases[] = {{"\xC3\xA9\xF0\x9F\x98\x80", "\xC3\xA9\xF0\x9F\x98\x80"},
                                                        {"\xC0\xAF", "\\uFFFD\\uFFFD"}, /* "/" in too many bytes */
                                                        {"\xED\xA0\x80", "\\uFFFD\\uFFFD\\uFFFD"}, /* half a pair */
                                                        {"\xF4\x90\x80\x80", "\\uFFFD\\uFFFD\\uFFFD\\uFFFD"},
                                                        {"a\xE2\x82", "a\\uFFFD\\uFFFD"},
                                                        {std::string("\0\x7F\t", 3), "\\u0000\\u007F\\u0009"},
                                                        {"\xE2\x80\xA8", "\\u2028"}};
  for (const auto &[bytes, expected] : cases) EXPECT_EQ(jsonEscape(bytes), expected) << bytes;
}

TEST(RequestLog, FollowsAFileThatWasMovedAway) {
  const netsift::test::ScratchRoot root;
  const std::string path = root.log("requests"), away = path + ".1";
  NetsiftLogBoard board{};
  const NetsiftRequestLog log{path.c_str(), NETSIFT_LOG_SQUID, 0, &board, hear};
  ASSERT_EQ(netsift_openRequestLog(&log), 1);
  const int descriptor = requestLogFile;
  write("one");
  ASSERT_EQ(rename(path.c_str(), away.c_str()), 0);
  write("two");
  board.round++;
  write("three");
  EXPECT_EQ(requestLogFile, descriptor);
  EXPECT_EQ(std::count(told.begin(), told.end(), ""), 0);
  const std::string old = netsift::test::readFile(away), fresh = netsift::test::readFile(path);
  EXPECT_EQ(std::count(old.begin(), old.end(), '\n'), 2);
  EXPECT_EQ(std::count(fresh.begin(), fresh.end(), '\n'), 1);
}

TEST(RequestLog, AFullDiskLeavesNoHalfLineAndIsToldOnce) {
  const netsift::test::ScratchRoot root;
  const std::string path = root.log("requests");
  const NetsiftRequestLog log{path.c_str(), NETSIFT_LOG_SQUID, 0, nullptr, hear};
  ASSERT_EQ(netsift_openRequestLog(&log), 1);
  write("kept");
  const std::string kept = netsift::test::readFile(path);
  signal(SIGXFSZ, SIG_IGN);
  const rlimit full{kept.size() + 20, RLIM_INFINITY}, free{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  write("lost");
  write("lost at once");
  EXPECT_EQ(netsift::test::readFile(path), kept);
  ASSERT_EQ(told.size(), 1U);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &free), 0);
  for (int tries = 0; told.size() < 2 && tries < 100; tries++) {
    usleep(100'000);
    write("again");
  }
  ASSERT_EQ(told.size(), 2U);
  EXPECT_TRUE(told[1].starts_with(path + ": is written again; lines lost: ")) << told[1];
  const std::string after = netsift::test::readFile(path);
  EXPECT_TRUE(after.starts_with(kept) && after.ends_with("again - HIER_NONE/- -\n")) << after;
}

TEST(RequestLog, WaitsForAFolderThatIsMissing) {
  const netsift::test::ScratchRoot root;
  const std::string folder = root.log("later"), path = folder + "/requests";
  const NetsiftRequestLog log{path.c_str(), NETSIFT_LOG_SQUID, 0, nullptr, hear};
  ASSERT_EQ(netsift_openRequestLog(&log), 1);
  EXPECT_EQ(told.size(), 1U);
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  for (int tries = 0; told.size() < 2 && tries < 100; tries++) {
    usleep(100'000);
    write("there");
  }
  EXPECT_EQ(told.size(), 2U);
  EXPECT_NE(netsift::test::readFile(path).find("there"), std::string::npos);
  EXPECT_EQ(netsift_openRequestLog(nullptr), 1);
  EXPECT_FALSE(isLogged());
}
