#include "util/escape.h"

#include <gtest/gtest.h>

using namespace netsift;
using std::string;

TEST(Escape, LeavesNothingThatEndsItsPlace) {
  EXPECT_EQ(htmlEscape("a&<b>\"'\xC3\xA4"), "a&amp;&lt;b&gt;&quot;&#39;\xC3\xA4");
  EXPECT_EQ(logEscape("a \"b\"\\\r\n\t~"), "a \\\"b\\\"\\\\\\r\\n\\t~");
  EXPECT_EQ(logEscape(string("\0\x1B\x1F\x7F\x20", 5)), "\\x00\\x1B\\x1F\\x7F ");
  EXPECT_EQ(logEscape("\xC2\x80\xC2\x9F\xC2\xA0\xC3\x9B\xC2"), "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x9B\xC2");
}
