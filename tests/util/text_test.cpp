#include "util/text.h"

#include <gtest/gtest.h>

#include "tests/support/support.h"

TEST(Trim, CutsWhiteSpaceAtBothEndsInPlace) {
  const std::pair<const char *, const char *> cases[] = {
      {"", ""}, {" \t\r\n", ""}, {"a", "a"}, {"  a b \r\n", "a b"}, {"\v\fa", "a"}, {"\xa0 a \xa0", "\xa0 a \xa0"}};
  for (const auto &[untrimmed, trimmed] : cases) {
    netsift::test::GuardedText text(untrimmed);
    EXPECT_EQ(trim(text.get()), text.get());
    EXPECT_STREQ(text.get(), trimmed) << '"' << untrimmed << '"';
  }
}
