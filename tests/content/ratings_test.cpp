#include "content/ratings.h"

#include <gtest/gtest.h>

#include <string>

#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using netsift::test::GuardedText;
using netsift::test::LogCapture;
using std::string;

const string start = "<meta http-equiv=\"pics-label\" content='(pics-1.1 ";
const string icraBad = "\"http://www.icra.org/ratingsv02.html\" l r (cz 1 nb 1 oa 0) ";
const string rsacBad = "\"http://www.rsac.org/ratingsv01.html\" l r (v 0 s 3 n 0 l 0) ";
const string surfBad = "\"http://www.safesurf.com/ratings.html\" l r (ss~~000 1 ss~~00a 2 ss~~00A 6) ";
const string all = start + icraBad + rsacBad + surfBad + ")'>";

TEST(Ratings, JudgesTheLabelsOfTheHead) {
  const struct {
    string text;
    int expected;
  } cases[] = {{"<", 0},
               {"<head>" + all + "</head>", 1},
               {start + surfBad + rsacBad + ">", 2},
               {"< " + all.substr(1), 1},
               {"<  " + all.substr(1), 0},
               {"<META" + all.substr(5), 0},
               {"< /head>" + all, 0},
               {"</HEAD>" + all, 1},
               {"<meta \"pics-label\" icra r (nb 0> nb 1)", 0},
               {"<meta \"pics-label\" icra r (nb 1>", 1},
               {"<meta \"pics-label\" icra r (nb 0) (nb 1)>", 0},
               {"<meta icra r (nb 1) \"pics-label\">", 0},
               {"<meta \"pics-label\" icra ratings (nb 0) r (nb 9)>", 1},
               {"<meta \"pics-label\" icra r (xnb 1)>", 1},
               {"<meta \"pics-label\" icra r (nb 0 nb 1)>", 0}};
  icraenable = rsacenable = safesurfenable = 1;
  for (const auto &c : cases) {
    GuardedText text(c.text);
    EXPECT_EQ(checkPICSRating(text.get()), c.expected) << c.text;
    EXPECT_EQ(string(text.get()), c.text);
  }
}

TEST(Ratings, SwitchesAndTraces) {
  const struct {
    uint8_t icra, rsac, surf;
    int expected;
    const char *trace;
  } cases[] = {{1, 1, 1, 1, "ICRA rating exceeded"},
               {0, 1, 1, 2, "RSAC rating exceed"},
               {0, 0, 1, 4, "SafeSurf rating exceeded"},
               {0, 0, 0, 0, ""}};
  for (const auto &c : cases) {
    icraenable = c.icra, rsacenable = c.rsac, safesurfenable = c.surf;
    LogCapture log(2);
    EXPECT_EQ(checkPICSRating(GuardedText(all).get()), c.expected);
    EXPECT_TRUE(c.expected == 0 ? log.text().empty() : log.has(c.trace)) << log.text();
  }
}

TEST(Ratings, LimitsBelongToTheirKeys) {
  const struct {
    int (*check)(char *);
    int32_t *limit;
    const char *key;
  } cases[] = {{checkICRARating, &icra[14], "nr"},
               {checkICRARating, &icra[39], "vk"},
               {checkRSACRating, &rsac[3], "l"},
               {checkSafeSurfRating, &safesurf[10], "00A"}};
  for (const auto &c : cases) {
    GuardedText text("x r (" + string(c.key) + " 3) r (none 4)");
    EXPECT_EQ(c.check(text.get()), 1) << c.key;
    *c.limit = 3;
    EXPECT_EQ(c.check(text.get()), 0) << c.key;
  }
}

TEST(Ratings, ReadsTheNumberAfterAKey) {
  const struct {
    const char *list;
    int limit, allowed;
  } cases[] = {{"(v 3 s 0", 3, 1}, {"(v 3 s 0", 2, 0},      {"(v 10", 9, 0},
               {"(v 11", 0, 1},    {"(v 4294967297", 0, 1}, {"(v 99999999999999999999", 5, 1},
               {"(v 11", -1, 0},   {"(v -3", 0, 1},         {"(v x", -1, 1},
               {"(v ", -1, 1},     {"(v3 s 9", 0, 1}};
  LogCapture log(2);
  for (const auto &c : cases) {
    EXPECT_EQ(isRatingAllowed(GuardedText(c.list).get(), "v ", c.limit), c.allowed) << c.list << " limit " << c.limit;
  }
  EXPECT_TRUE(log.has("rating exceeded name v  value 3 allowed 2"));
}

}  // namespace
