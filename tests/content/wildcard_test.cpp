#include "content/wildcard.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/support.h"

namespace {

using netsift::test::GuardedText;
using std::string;

string times(size_t count, char byte) { return string(count, byte); }

/* Both strings end at a page that cannot be read. */
int guarded(int (*test)(const char *, const char *), const string &text, const string &pattern) {
  return test(GuardedText(text).get(), GuardedText(pattern).get());
}

struct Case {
  string text, pattern;
  int expected;
};

void check(int (*test)(const char *, const char *), std::initializer_list<Case> cases) {
  for (const Case &c : cases) {
    EXPECT_EQ(guarded(test, c.text, c.pattern), c.expected) << "text '" << c.text << "' pattern '" << c.pattern << "'";
  }
}

TEST(Wildcard, TakesTheLeftmostOccurrenceAndNeverRetries) {
  check(isMatching, {
                        {"ads.example.com/x", "ads.*", 1},
                        {"x.ads.example.com", "ads.*", 0},
                        {"www.mycasino.com", "*casino*", 1},
                        {"www.myCasino.com", "*casino*", 0},
                        {"a/b.gif", "*.gif", 1},
                        {"a.gif/b.gif", "*.gif", 0},
                        {"abab", "*ab", 0},
                        {"abab", "ab*", 1},
                        {"abab", "*ab*", 1},
                        {"abab", "ab*ab", 1},
                        {"abcd", "ab", 0},
                        {"ab", "abcd", 0},
                        {"aXbYc", "a*b*c", 1},
                        {"aXbYcZ", "a*b*c", 0},
                        {"acb", "a*b*c", 0},
                        {"abc", "abc*", 1},
                        {"abc", "abc**", 0}, /* the text is used up before the second star is looked at */
                        {"abcd", "abc**", 1},
                        {"abc", "*", 1},
                        {"", "*", 1},
                        {"", "**", 0},
                        {"", "", 1},
                        {"a", "", 0},
                    });
}

TEST(Wildcard, FoldsOffsetsToEightBits) {
  check(isMatching, {
                        {times(127, 'x') + "ab", "*ab", 1},
                        {times(128, 'x') + "ab", "*ab", 0}, /* back to before the start: clamped, so text remains */
                        {times(128, 'x') + "ab", "*ab*", 1},
                        {times(255, 'x') + "ab", "*ab*", 0},
                        {times(511, 'x') + "ab", "*ab*", 0},
                        {times(256, 'x') + "ab", "*ab*", 1},
                        /* "cd" is 200 past position 104, which takes the search back to 104 - 56 + 2 */
                        {times(50, 'x') + "ef" + times(50, 'x') + "ab" + times(200, 'y') + "cd", "*ab*cd*ef*", 1},
                        {times(49, 'x') + "ef" + times(51, 'x') + "ab" + times(200, 'y') + "cd", "*ab*cd*ef*", 0},
                        {times(300, 'a') + times(200, 'b'), "*b*b*b*b*b*b*b*b*b*b*b*b*b*b*b*b*c*", 0},
                    });
  EXPECT_EQ(strsearch("abcabc", "bc"), 1);
  EXPECT_EQ(strsearch("abc", "abcd"), -1);
  EXPECT_EQ(strsearch("abc", ""), 0);
  for (auto [offset, folded] : {std::pair{127, 127}, {128, -128}, {254, -2}, {255, -1}, {256, 0}, {300, 44}}) {
    EXPECT_EQ(strsearch(GuardedText(times(static_cast<size_t>(offset), 'x') + "ab").get(), "ab"), folded) << offset;
  }
}

TEST(Wildcard, CountsTheFirst111BytesOfARun) {
  const string run = times(111, 'r');
  check(isMatching, {
                        {run, run, 1},
                        {run, run + "different", 1},
                        {run + "rest", run + "rest", 0}, /* only 111 bytes of the text are used up */
                        {run + "rest", run + "different*", 1},
                        {run, "*" + run + "different", 1},
                        {times(110, 'r'), run, 0},
                        {times(110, 'r') + "s" + run, "*" + run + "!*", 1},
                    });
}

TEST(Wildcard, ContainsAddsTheStarsThatAreMissing) {
  string cutLength = times(300, 'w'); /* 300 - 256: the byte looked at is the 44th */
  cutLength[43] = '*';
  check(contains, {
                      {"application/zip", "zip", 1},
                      {"application/zip", "*zip", 1},
                      {"application/zip", "appl*", 1},
                      {"zip/application", "*zip*", 1},
                      {"application/ZIP", "zip", 0},
                      {"zi", "zip", 0},
                      {"anything", "", 1},
                      {"anything", "*", 1},
                      {"", "", 0},
                      {times(250, 'w') + "x", times(250, 'w'), 1},
                      {times(300, 'w') + "x", times(256, 'w'), 1},
                      {times(300, 'w') + "x", cutLength, 0},
                      {"x" + times(154, 'w'), cutLength, 1},
                  });
}

TEST(Wildcard, PrefixesAndDelimiters) {
  check(beginsWith, {{"www.a", "www.", 1}, {"WWW.a", "www.", 0}, {"ww", "www.", 0}, {"", "", 1}, {"a", "", 1}});
  check(beginsWithCI, {{"HOST: a", "Host:", 1}, {"Host", "Host:", 0}, {"Hosts:", "Host:", 0}, {"a", "", 1}});

  struct {
    const char *text, *needle;
    char delimiter;
    int expected;
  } const cases[] = {
      {"key=value;other", "value", ';', 4}, {"key;value", "value", ';', -1}, {"key=val;ue", "val;", ';', -1},
      {"key=value", "value", ';', 4},       {"a;b", "b", '\0', 2},           {";a", "", ';', 0},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(containsBeforeDelim(GuardedText(c.text).get(), c.needle, c.delimiter), c.expected) << c.text;
  }
  EXPECT_EQ(containsBeforeDelim((times(300, 'x') + "ab").c_str(), "ab", ';'), 300); /* a plain int, not folded */
}

}  // namespace
