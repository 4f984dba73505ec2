#include "http/strictCoding.h"

#include "tests/http/strictHeads.h"
#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

/* The text, behind it "" when it was whole and "!" when it was bad. */
string decode(Coding coding, const string &body, size_t pieceSize, size_t room) {
  CodingDecoder decoder;
  decoder.coding = coding;
  Parse answer = Parse::more;
  string text, out(room, '\0');
  for (size_t at = 0, used = 0, produced = 0; answer != Parse::bad && (at < body.size() || produced == room);
       at += used) {
    const std::string_view piece = std::string_view(body).substr(at, pieceSize);
    answer = decodeCoding(decoder, piece, used, out.data(), room, produced);
    text.append(out, 0, produced);
  }
  if (answer != Parse::bad) answer = finishCoding(decoder);
  endCoding(decoder);
  return text + (answer == Parse::done ? "" : "!");
}

}  // namespace

TEST(DecodeCoding, DecodesPieceByPieceAndTellsWholeFromBroken) {
  string page;
  for (int i = 0; i < 3000; i++) page += std::to_string(i * 7919 % 1013);
  const string whole = compressed(page, 31), zlib = compressed(page, 15);
  string damaged = whole;
  damaged[damaged.size() - 5] ^= 1; /* in the check sum */
  using enum Coding;
  const struct {
    Coding coding;
    string body, text;
  } cases[] = {
      {gzip, whole, page},
      {deflate, zlib, page},
      {deflate, compressed(page, -15), page},
      {gzip, whole + compressed("", 31) + whole, page + page},
      {gzip, whole + string(600, '\0') + whole, page},
      {deflate, zlib + zlib, page},
      {gzip, "", ""},
      {gzip, whole.substr(0, whole.size() - 1), page + "!"},
      {gzip, whole + "\x1F", page + "!"},
      {gzip, damaged, page + "!"},
      {gzip, "<html>", "!"},
      {deflate, "\x78\x9E", "!"},
  };
  for (const auto &test : cases) {
    for (const size_t size : {1, 997, 1 << 20}) {
      EXPECT_TRUE(decode(test.coding, test.body, size, size) == test.text) << &test - cases << " by " << size;
    }
  }
}

TEST(DecodeCoding, RefusesBombsButNotShortRepetitiveTexts) {
  const string megabyte(1 << 20, 'a');
  EXPECT_EQ(decode(Coding::gzip, compressed(megabyte, 31), 4096, 4096).size(), megabyte.size());
  EXPECT_EQ(decode(Coding::gzip, compressed(megabyte + megabyte, 31), 4096, 4096), megabyte + string(4096, 'a') + "!");
  string mixed = megabyte + megabyte;
  for (size_t i = 0; i < mixed.size(); i += 64) mixed[i] = static_cast<char>(i * 2654435761u >> 24);
  EXPECT_TRUE(decode(Coding::deflate, compressed(mixed, 15), 4096, 65536) == mixed);

  CodingDecoder decoder;
  decoder.given = decoder.taken = (256u << 20) - 1; /* bytes that came before, at an honest ratio */
  size_t used = 0, produced = 0;
  char out[8];
  EXPECT_EQ(decodeCoding(decoder, compressed("ab", 31), used, out, sizeof out, produced), Parse::bad);
  endCoding(decoder);
}

TEST(ReadContentCoding, NamesOneCodingOrUnknown) {
  const std::pair<const char *, Coding> cases[] = {
      {"Identity, ,", Coding::identity},      {"X-GZIP", Coding::gzip},
      {"identity, deflate", Coding::deflate}, {"br", Coding::unknown},
      {"gzip, gzip", Coding::unknown},        {"gzip\r\ncontent-encoding: br", Coding::unknown},
  };
  for (const auto &[value, coding] : cases) {
    const ScannedHead head("HTTP/1.1 200 OK\r\nContent-Encoding: " + string(value));
    EXPECT_EQ(readContentCoding(head.header.first), coding) << value;
  }
}
