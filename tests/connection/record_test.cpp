#include "log/requestRecord.h"
#include "state/results.h"
#include "tests/connection/cycle_fixture.h"

namespace {

std::vector<NetsiftRequestFigures> counted;

/* What is counted of a connection's requests, on either road. */
class RecordTest : public ScanTest, public testing::WithParamInterface<int32_t> {
 protected:
  RecordTest() {
    StrictHttp = GetParam();
    netsift_countRequest = [](const NetsiftRequestFigures *figures) { counted.push_back(*figures); };
    virusscan = 0;
  }
};

}  // namespace

TEST_P(RecordTest, SaysWhatBecameOfARequestAndHowManyBytesWentToTheClient) {
  const std::string sent = serve(get, {response("Connection: close\r\n", "body")});
  ASSERT_EQ(counted.size(), 1U);
  EXPECT_EQ(counted[0].outcome, NETSIFT_REQUEST_DELIVERED);
  EXPECT_EQ(counted[0].bytes, sent.size());
  EXPECT_EQ(counted[0].status, 200);
  EXPECT_EQ(counted[0].cache, NETSIFT_CACHE_MISS);
}

TEST_P(RecordTest, SaysWhyItWasBlocked) {
  block_ports = 1;
  blockedports[0] = 25;
  const std::string sent = serve("GET http://h:25/ HTTP/1.1\r\nHost: h:25\r\n\r\n", {});
  block_ports = 0;
  std::strcpy(blockedcontent[0], "audio");
  serve(get, {response("Content-Type: audio/x\r\nConnection: close\r\n", "x")});
  ASSERT_EQ(counted.size(), 2U);
  EXPECT_EQ(counted[0].blocked, NETSIFT_BLOCK_PORT);
  EXPECT_EQ(counted[0].bytes, sent.size());
  EXPECT_EQ(counted[1].blocked, NETSIFT_BLOCK_TYPE);
  for (const NetsiftRequestFigures &figures : counted) {
    EXPECT_EQ(figures.outcome, NETSIFT_REQUEST_BLOCKED);
    EXPECT_EQ(figures.status, StrictHttp != 0 ? 403 : 200);
  }
}

TEST_P(RecordTest, SaysWhatTheEnginesAndTheCacheSaid) {
  virusscan = 1;
  engine({"x: Made-Up FOUND\n"});
  serve(get, {response(dated, "marked")});
  stopEngine();
  serve(get, {response(dated, "marked")});
  serve("GET http://h/other HTTP/1.1\r\nHost: h\r\n\r\n", {response(dated, "other")});
  ASSERT_EQ(counted.size(), 3U);
  EXPECT_EQ(counted[0].scan, NETSIFT_SCANNED_INFECTED);
  EXPECT_EQ(counted[1].cache, NETSIFT_CACHE_HIT);
  EXPECT_EQ(counted[1].scan, NETSIFT_SCANNED_NOT);
  for (int i : {0, 1}) EXPECT_EQ(counted[i].blocked, NETSIFT_BLOCK_VIRUS);
  EXPECT_EQ(counted[2].scan, NETSIFT_SCANNED_NO_ANSWER);
  EXPECT_EQ(counted[2].blocked, NETSIFT_BLOCK_UNSCANNED);
}

INSTANTIATE_TEST_SUITE_P(Roads, RecordTest, testing::Values(0, int32_t{STRICT_HTTP}));
