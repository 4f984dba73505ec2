#include "content/wildcard.h"

#include "tests/support/support.h"

namespace {

string times(size_t count, char byte) { return string(count, byte); }

/* A text, its pattern, the next text, and so on. Each ends at a page that cannot be read. */
void check(int (*test)(const char *, const char *), int expected, const std::vector<string> &pairs) {
  for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
    const GuardedText text(pairs[i]), pattern(pairs[i + 1]);
    EXPECT_EQ(test(text.get(), pattern.get()), expected) << "'" << pairs[i] << "' and '" << pairs[i + 1] << "'";
  }
}

TEST(Wildcard, TakesTheLeftmostOccurrenceAndNeverRetries) {
  check(isMatching, 1, {"ads.example.com/x", "ads.*", "www.mycasino.com", "*casino*", "a/b.gif", "*.gif", "", ""});
  check(isMatching, 0, {"x.ads.example.com", "ads.*", "www.myCasino.com", "*casino*", "a.gif/b.gif", "*.gif", "a", ""});
  check(isMatching, 1, {"abab", "ab*", "abab", "*ab*", "abab", "ab*ab", "aXbYc", "a*b*c", "abc", "abc*", "", "*"});
  check(isMatching, 0, {"abab", "*ab", "abcd", "ab", "ab", "abcd", "aXbYcZ", "a*b*c", "acb", "a*b*c", "", "**"});
}

TEST(Wildcard, FoldsOffsetsToEightBits) {
  check(isMatching, 1, {times(127, 'x') + "ab", "*ab", times(128, 'x') + "ab", "*ab*", times(256, 'x') + "ab", "*ab*"});
  check(isMatching, 0, {times(128, 'x') + "ab", "*ab", times(255, 'x') + "ab", "*ab*", times(511, 'x') + "ab", "*ab*"});
  const string far = "ab" + times(200, 'y') + "cd"; /* takes the search from 104 back to 104 - 56 + 2 */
  check(isMatching, 1, {times(50, 'x') + "ef" + times(50, 'x') + far, "*ab*cd*ef*"});
  check(isMatching, 0, {times(49, 'x') + "ef" + times(51, 'x') + far, "*ab*cd*ef*"});
  check(isMatching, 0, {times(300, 'a') + times(200, 'b'), "*b*b*b*b*b*b*b*b*b*b*b*b*b*b*c*"});
}

TEST(Wildcard, CountsTheFirst111BytesOfARun) {
  const string run = times(111, 'r');
  check(isMatching, 1, {run, run + "different", run + "rest", run + "other*", run, "*" + run + "different"});
  check(isMatching, 1, {times(110, 'r') + "s" + run, "*" + run + "!*"});
  check(isMatching, 0, {run + "rest", run + "rest", times(110, 'r'), run});
}

TEST(Wildcard, ContainsAddsTheStarsThatAreMissing) {
  check(contains, 1,
        {"a/zip", "zip", "a/zip", "*zip", "a/zip", "a*", "zip/a", "*zip*", "anything", "", "anything", "*"});
  check(contains, 0, {"a/ZIP", "zip", "zi", "zip", "", ""});
  check(contains, 1, {times(250, 'w') + "x", times(250, 'w'), times(300, 'w') + "x", times(256, 'w')});
  string cutLength = times(300, 'w'); /* 300 - 256: the byte looked at is the 44th */
  cutLength[43] = '*';
  check(contains, 0, {times(300, 'w') + "x", cutLength});
  check(contains, 1, {"x" + times(154, 'w'), cutLength});
}

TEST(Wildcard, PrefixesAndDelimiters) {
  check(beginsWith, 0, {"WWW.a", "www.", "ww", "www."});
  check(beginsWithCI, 1, {"HOST: a", "Host:", "a", ""});
  check(beginsWithCI, 0, {"Host", "Host:", "Hosts:", "Host:"});
  const auto beforeSemicolon = [](const char *text, const char *word) { return containsBeforeDelim(text, word, ';'); };
  check(beforeSemicolon, 300, {times(300, 'x') + "ab", "ab"}); /* an int, as no other offset here */
  check(beforeSemicolon, -1, {"key;value", "value", "key=val;ue", "val;"});
}

}  // namespace
