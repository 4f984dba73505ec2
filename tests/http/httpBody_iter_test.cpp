#include "http/httpBody_iter.h"

#include <gtest/gtest.h>

#include "tests/support/support.h"

using namespace std::string_view_literals;

TEST(PreProcessBody, FoldsWhiteSpaceAndCase) {
  const std::string_view cases[][2] = {{"  Hello\r\n\tWORLD  "sv, " hello world"sv},
                                       {"a\0 \0\n\0B\0"sv, "a b"sv},
                                       {"\0 \0"sv, ""sv},
                                       {"@[`{ \xc4\xff\v\x01Z"sv, "@[`{ \xc4\xff\v\x01z"sv},
                                       {""sv, ""sv}};
  for (const auto &[body, text] : cases) {
    netsift::test::GuardedText guarded(body, false);
    int length = -1;
    char *found = preProcessBody(guarded.get(), static_cast<int>(body.size()), &length);
    EXPECT_EQ(std::string_view(found, static_cast<size_t>(length) + 1), std::string(text) + '\0') << body;
    free(found);
  }
}
