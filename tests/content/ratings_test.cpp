#include "content/ratings.h"

#include "tests/support/support.h"

namespace {

/* What is judged first comes last. */
const string all =
    "<meta http-equiv=\"pics-label\" content='(pics-1.1 \"http://www.safesurf.com/ratings.html\" l r (ss~~000 1 "
    "ss~~00A 6) "
    "\"http://www.rsac.org/ratingsv01.html\" l r (v 0 s 3 n 0 l 0) "
    "\"http://www.icra.org/ratingsv02.html\" l r (cz 1 nb 1 oa 0))'>";

TEST(Ratings, JudgesTheLabelsOfTheHead) {
  const struct {
    string text;
    int enabled, expected; /* each vocabulary's bit is its result */
    const char *trace = "ICRA rating exceeded";
  } cases[] = {{"<", 7, 0},
               {"</HEAD>< " + all.substr(1) + "</head>", 7, 1},
               {all, 6, 2, "RSAC rating exceed"},
               {all, 4, 4, "SafeSurf rating exceeded"},
               {all, 0, 0},
               {"<  " + all.substr(1), 7, 0},
               {"<META" + all.substr(5), 7, 0},
               {"< /head>" + all, 7, 0},
               {"<meta \"pics-label\" icra r (nb 0> nb 1)", 7, 0},
               {"<meta \"pics-label\" icra r (nb 0) (nb 1)>", 7, 0},
               {"<meta icra r (nb 1) \"pics-label\">", 7, 0},
               {"<meta \"pics-label\" icra ratings (nb 0) r (xnb 1)>", 7, 1}};
  for (const auto &c : cases) {
    icraenable = c.enabled & 1, rsacenable = c.enabled >> 1 & 1, safesurfenable = c.enabled >> 2 & 1;
    const LogCapture log(2);
    const GuardedText text(c.text);
    EXPECT_EQ(checkPICSRating(text.get()), c.expected) << c.text;
    EXPECT_EQ(text.get(), c.text);
    EXPECT_EQ(log.has(c.trace), c.expected != 0) << c.text << log.text();
  }
}

TEST(Ratings, LimitsBelongToTheirKeys) {
  const std::tuple<int (*)(char *), int32_t *, string> cases[] = {{checkICRARating, &icra[14], "nr"},
                                                                  {checkICRARating, &icra[39], "vk"},
                                                                  {checkRSACRating, &rsac[3], "l"},
                                                                  {checkSafeSurfRating, &safesurf[10], "00A"}};
  for (const auto &[check, limit, key] : cases) {
    const GuardedText text("x r (" + key + " 3) r (none 4)");
    EXPECT_EQ(check(text.get()), 1) << key;
    *limit = 3;
    EXPECT_EQ(check(text.get()), 0) << key;
  }
}

TEST(Ratings, ReadsTheNumberAfterTheFirstOccurrenceOfAKey) {
  const std::tuple<const char *, int, int> cases[] = {
      {"(v 0 v 1", 0, 1}, {"(v 3 s 0", 2, 0}, {"(v 10", 9, 0}, {"(v 11", 0, 1}, {"(v 4294967297", 0, 1},
      {"(v 11", -1, 0},   {"(v -3", 0, 1},    {"(v x", -1, 1}, {"(v ", -1, 1},  {"(v3 s 9", 0, 1}};
  const LogCapture log(2);
  for (const auto &[list, limit, allowed] : cases)
    EXPECT_EQ(isRatingAllowed(GuardedText(list).get(), "v ", limit), allowed) << list << " limit " << limit;
  EXPECT_TRUE(log.has("rating exceeded name v  value 3 allowed 2"));
}

}  // namespace
