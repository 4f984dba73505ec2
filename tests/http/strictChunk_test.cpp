#include "http/strictChunk.h"

#include <gtest/gtest.h>

#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

/* Decodes input that ends at a page that cannot be read, cut at two places, through an output of `room` bytes. Gives
   the body and "bad", "more" or "done" after how many bytes. */
string decode(const string &input, size_t cut, size_t secondCut, size_t room) {
  GuardedText guarded(input, false);
  ChunkDecoder decoder;
  Parse answer = Parse::more;
  string body, out(room, '\0');
  size_t total = 0;
  for (size_t used = 1, produced = 0; answer == Parse::more && total < input.size() && used + produced > 0;) {
    const size_t end = total < cut ? cut : total < secondCut ? secondCut : input.size();
    answer = decodeChunks(decoder, {guarded.get() + total, end - total}, used, out.data(), room, produced);
    total += used;
    body.append(out, 0, produced);
  }
  return body + (answer == Parse::bad ? " bad " : answer == Parse::more ? " more " : " done ") + std::to_string(total);
}

string decode(const string &input) { return decode(input, 0, 0, 100); }

}  // namespace

TEST(DecodeChunks, ReadsEverySplitTheSame) {
  const string input = "3\r\nabc\r\n0A ;x=\"y\"\r\n0123456789\r\n000 \t\r\nA: b\r\n\r\n";
  for (size_t cut = 0; cut <= input.size(); cut++) {
    for (size_t secondCut = cut; secondCut <= input.size(); secondCut++) {
      ASSERT_EQ(decode(input + "0\r\n", cut, secondCut, 1 + (cut + secondCut) % 20),
                "abc0123456789 done " + std::to_string(input.size()));
    }
  }
}

TEST(DecodeChunks, RefusesAtTheByteThatSpoils) {
  for (const string &spoilt :
       {string("\r"), string("g"), string("-"), string("0x"), string(" "), string("1 1"), string("1\n"),
        string("1\r\r"), string("1;\n"), string("1;\0", 3), string("0\r\n\n"), string("0\r\na:\n"), string("0\r\n\r\r"),
        string("8000000000000000"), "00000" + string(16, 'F'), "1;" + string(4095, 'x'), string(4097, '0'),
        "0\r\n" + string(16385, 'a')}) {
    EXPECT_EQ(decode(spoilt + "1\r\n\r\n"), " bad " + std::to_string(spoilt.size())) << testing::PrintToString(spoilt);
  }
  EXPECT_EQ(decode("1\r\nab\r\n"), "a bad 5");
  EXPECT_EQ(decode("1\r\na\n"), "a bad 5");
  EXPECT_EQ(decode("1\r\na\rb"), "a bad 6");
}

TEST(DecodeChunks, TakesWhatIsJustWithinBounds) {
  string trailers = "0\r\n";
  for (int i = 0; i < 100; i++) trailers += "a:\r\n";
  EXPECT_EQ(decode(trailers + "\r\n"), " done 405");
  EXPECT_EQ(decode(trailers + "a:\r\n\r\n"), " bad 404");
  EXPECT_EQ(decode("7FFFFFFFFFFFFFFF\r\na"), "a more 19");
  EXPECT_EQ(decode("1;" + string(4093, 'x') + "\r\na\r\n0\r\n\r\n"), "a done 4105");
}
