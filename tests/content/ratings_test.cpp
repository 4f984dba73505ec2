#include "content/ratings.h"

#include <gtest/gtest.h>

#include <string>

#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using netsift::test::GuardedText;
using netsift::test::LogCapture;
using std::string;

string label(const string &content) { return "<meta http-equiv=\"pics-label\" content='(pics-1.1 " + content + ")'>"; }

const string icraBad = "\"http://www.icra.org/ratingsv02.html\" l r (cz 1 nb 1 oa 0)";
const string rsacBad = "\"http://www.rsac.org/ratingsv01.html\" l r (v 0 s 3 n 0 l 0)";
const string surfBad = "\"http://www.safesurf.com/ratings.html\" l r (ss~~000 1 ss~~00a 2 ss~~00A 6)";

TEST(Ratings, JudgesTheLabelsOfTheHead) {
  const struct {
    string text;
    int expected;
  } cases[] = {
      {"", 0},
      {"no tag", 0},
      {"<", 0},
      {"<html><head>" + label(icraBad) + "</head>", 1},
      {label(rsacBad), 2},
      {label(surfBad), 4},
      {label(icraBad + rsacBad + surfBad), 1},
      {label(surfBad + " " + rsacBad), 2}, /* vocabularies in their own order */
      {"< " + label(icraBad).substr(1), 1},
      {"<  " + label(icraBad).substr(1), 0},
      {"<META" + label(icraBad).substr(5), 0},
      {"<meta name=pics-label content='" + icraBad + "'>", 0},
      {"<head></head><body>" + label(icraBad), 0},
      {"< /head>" + label(icraBad), 0},
      {"</HEAD>" + label(icraBad), 1},
      {"<meta \"pics-label\" icra>" + label(rsacBad), 2},
      {"<meta \"pics-label\" icra r (nb 1>", 1}, /* a list that the tag ends */
      {"<meta \"pics-label\" icra r (nb 0> nb 1)", 0},
      {"<meta \"pics-label\" icra r (nb 0) (nb 1)>", 0},
      {"<meta \"pics-label\" icra r (nb 1)", 0}, /* a tag without its end */
      {"<meta icra r (nb 1) \"pics-label\">", 0},
      {"<meta icra r (nb 1) \"pics-label\" icra ratings (nb 0) r (nb 9)>", 1}, /* " r (" before " ratings (" */
      {"<meta \"pics-label\" icra r (xnb 1)>", 1},
      {"<meta \"pics-label\" icra r (vk 1)>", 1},
      {"<meta \"pics-label\" icra r (nb 0 nb 1)>", 0},
  };
  icraenable = rsacenable = safesurfenable = 1;
  for (auto &limit : rsac) limit = 2;
  for (auto &limit : safesurf) limit = 5;
  for (const auto &c : cases) {
    GuardedText text(c.text);
    EXPECT_EQ(checkPICSRating(text.get()), c.expected) << c.text;
    EXPECT_EQ(string(text.get()), c.text);
  }
}

TEST(Ratings, SwitchesAndTraces) {
  const string all = label(icraBad + rsacBad + surfBad);
  const struct {
    uint8_t icra, rsac, surf;
    int expected;
    const char *trace;
  } cases[] = {
      {1, 1, 1, 1, "ICRA rating exceeded"},
      {0, 1, 1, 2, "RSAC rating exceed"},
      {2, 1, 0, 2, "RSAC rating exceed"},
      {0, 0, 1, 4, "SafeSurf rating exceeded"},
      {0, 0, 0, 0, ""},
  };
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
    int32_t *limits;
    int position;
    const char *key;
  } cases[] = {
      {checkICRARating, icra, 0, "la"},          {checkICRARating, icra, 14, "nr"},
      {checkICRARating, icra, 39, "vk"},         {checkICRARating, icra, 38, "vu"},
      {checkRSACRating, rsac, 0, "v"},           {checkRSACRating, rsac, 3, "l"},
      {checkSafeSurfRating, safesurf, 0, "000"}, {checkSafeSurfRating, safesurf, 10, "00A"},
  };
  for (const auto &c : cases) {
    GuardedText text("x r (" + string(c.key) + " 3) r (none 4)");
    c.limits[c.position] = 3;
    EXPECT_EQ(c.check(text.get()), 0) << c.key;
    c.limits[c.position] = 2;
    EXPECT_EQ(c.check(text.get()), 1) << c.key;
  }
}

TEST(Ratings, ReadsTheNumberAfterAKey) {
  const struct {
    const char *list;
    int limit, allowed;
  } cases[] = {
      {"(v 3 s 0", 3, 1},      {"(v 3 s 0", 2, 0}, {"(v 10", 9, 0}, {"(v 11", 0, 1}, {"(v 99999999999999999999", 5, 1},
      {"(v 4294967297", 0, 1}, {"(v 11", -1, 0},   {"(v -3", 0, 1}, {"(v x", -1, 1}, {"(v ", -1, 1},
      {"(s 9", 0, 1},          {"(v3 s 9", 0, 1},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(isRatingAllowed(GuardedText(c.list).get(), "v ", c.limit), c.allowed) << c.list << " limit " << c.limit;
  }
  LogCapture log(2);
  isRatingAllowed("(v 3", "v ", 2);
  EXPECT_TRUE(log.has("rating exceeded name v  value 3 allowed 2"));
}

}  // namespace
