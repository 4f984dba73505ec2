#include "http/strictChunk.h"
#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

/* Decodes input that ends at a page that cannot be read, cut at two places, through an output of `room` bytes. Gives
   the body and "bad", "more" or "done" after how many bytes. */
string dechunked(const string &input, size_t cut = 0, size_t secondCut = 0, size_t room = 100) {
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

TEST(DecodeChunks, ReadsEverySplitTheSame) {
  const string input = "3\r\nabc\r\n0A ;x=\"y\"\r\n0123456789\r\n000 \t\r\nA: b\r\n\r\n";
  const string expected = "abc0123456789 done " + std::to_string(input.size());
  for (size_t cut = 0; cut <= input.size(); cut++) {
    for (size_t secondCut = cut; secondCut <= input.size(); secondCut++)
      ASSERT_EQ(dechunked(input + "0\r\n", cut, secondCut, 1 + (cut + secondCut) % 20), expected);
  }
}

TEST(DecodeChunks, RefusesAtTheByteThatSpoilsOrGoesBeyondBounds) {
  for (const string &spoilt :
       std::vector<string>{"\r", "g", "-", "0x", " ", "1 1", "1\n", "1\r\r", "1;\n", string("1;\0", 3), "0\r\n\n",
                           "0\r\na:\n", "0\r\n\r\r", "8000000000000000", "00000" + string(16, 'F'),
                           "1;" + string(4095, 'x'), string(4097, '0'), "0\r\n" + string(16385, 'a')}) {
    EXPECT_EQ(dechunked(spoilt + "1\r\n\r\n"), " bad " + std::to_string(spoilt.size()))
        << testing::PrintToString(spoilt);
  }
  string trailers = "0\r\n";
  for (int i = 0; i < 100; i++) trailers += "a:\r\n";
  const std::pair<string, string> cases[] = {{"1\r\nab\r\n", "a bad 5"},
                                             {"1\r\na\n", "a bad 5"},
                                             {"1\r\na\rb", "a bad 6"},
                                             {trailers + "\r\n", " done 405"},
                                             {trailers + "a:\r\n\r\n", " bad 404"},
                                             {"7FFFFFFFFFFFFFFF\r\na", "a more 19"},
                                             {"1;" + string(4093, 'x') + "\r\na\r\n0\r\n\r\n", "a done 4105"}};
  for (const auto &[input, expected] : cases) EXPECT_EQ(dechunked(input), expected) << input;
}

TEST(DecodeCoding, DecodesPieceByPieceAndTellsWholeFromBroken) {
  string page;
  for (int i = 0; i < 3000; i++) page += std::to_string(i * 7919 % 1013);
  const string whole = compressed(page, 31), zlib = compressed(page, 15);
  string damaged = whole;
  damaged[damaged.size() - 5] ^= 1; /* in the check sum */
  using enum Coding;
  const std::tuple<Coding, string, string> cases[] = {{deflate, compressed(page, -15), page},
                                                      {gzip, whole + compressed("", 31) + whole, page + page},
                                                      {gzip, whole + string(600, '\0') + whole, page},
                                                      {deflate, zlib + zlib, page},
                                                      {gzip, "", ""},
                                                      {gzip, whole.substr(0, whole.size() - 1), page + "!"},
                                                      {gzip, whole + "\x1F", page + "!"},
                                                      {gzip, damaged, page + "!"},
                                                      {gzip, "<html>", "!"},
                                                      {deflate, "\x78\x9E", "!"}};
  for (const auto &[coding, body, text] : cases) {
    for (const size_t size : {1, 997, 1 << 20})
      EXPECT_TRUE(decoded(coding, body, size, size) == text) << testing::PrintToString(body) << " by " << size;
  }
}

TEST(DecodeCoding, RefusesBombsButNotShortRepetitiveTexts) {
  const string megabyte(1 << 20, 'a');
  EXPECT_EQ(decoded(Coding::gzip, compressed(megabyte, 31), 4096, 4096).size(), megabyte.size());
  EXPECT_EQ(decoded(Coding::gzip, compressed(megabyte + megabyte, 31), 4096, 4096), megabyte + string(4096, 'a') + "!");
  string mixed = megabyte + megabyte;
  for (size_t i = 0; i < mixed.size(); i += 64) mixed[i] = static_cast<char>(i * 2654435761u >> 24);
  EXPECT_TRUE(decoded(Coding::deflate, compressed(mixed, 15), 4096, 65536) == mixed);
  CodingDecoder decoder;
  decoder.given = decoder.taken = (256u << 20) - 1; /* bytes that came before, at an honest ratio */
  size_t used = 0, produced = 0;
  char out[8];
  EXPECT_EQ(decodeCoding(decoder, compressed("ab", 31), used, out, sizeof out, produced), Parse::bad);
  endCoding(decoder);
}

}  // namespace
