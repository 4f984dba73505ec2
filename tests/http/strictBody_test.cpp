#include "http/httpHeader.h"
#include "http/strictChunk.h"
#include "http/strictHead.h"
#include "tests/support/coded.h"

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

TEST(EndOfChunks, HoldsNoTrailersWhereALineIsNoField) {
  const std::pair<string, string> cases[] = {{"T: x\r\nAge: 1\r\nu:\r\n", "T: x\r\nu:\r\n"},
                                             {"T: x\r\nContent-Length : 9\r\n", ""},
                                             {"T: x\r\n Age: 1\r\n", ""},
                                             {"T: x\r\nT: \x7F\r\n", ""},
                                             {"T: x\r\nT\r\n", ""}};
  for (const auto &[came, passed] : cases) EXPECT_EQ(endOfChunks(came), "0\r\n" + passed + "\r\n") << came;
}

string decode(const std::vector<Coding> &codings, const string &body, size_t pieceSize, size_t room,
              bool shown = false) {
  return decoded({{codings.front(), codings.back()}, codings.size()}, body, pieceSize, room, shown);
}

TEST(DecodeCodings, DecodesPieceByPieceAndTellsWholeFromBroken) {
  string page;
  for (int i = 0; i < 3000; i++) page += std::to_string(i * 7919 % 1013);
  using enum Coding;
  const string whole = coded(gzip, page), frame = coded(zstd, page), large = coded(brotli, page);
  string damaged = whole;
  damaged[damaged.size() - 5] ^= 1; /* in the check sum */
  const std::tuple<std::vector<Coding>, string, string, string> cases[] = {
      {{deflate}, compressed(page, -15), page, page},
      {{gzip}, whole + coded(gzip, "") + whole, page + page, page + page},
      {{gzip}, whole + string(600, 'r') + whole, page, page + string(600, 'r') + whole},
      {{deflate}, coded(deflate, page) + whole, page, page + whole},
      {{brotli}, large, page, page},
      {{brotli}, large + "rest", page, page + "rest"},
      {{zstd}, frame + frame + "rest", page + page, page + page + "rest"},
      {{brotli, gzip}, coded(brotli, whole), page, page},
      {{zstd, deflate}, coded(zstd, coded(deflate, page)), page, page},
      {{gzip, brotli}, coded(gzip, large + "rest"), page, page + "rest"},
      {{gzip}, "", "", ""},
      {{gzip}, whole.substr(0, whole.size() - 1), page + "!", page + "!"},
      {{brotli}, large.substr(0, large.size() - 9), "...!", "...!"},
      {{brotli, gzip}, coded(brotli, whole.substr(0, whole.size() - 1)), page + "!", page + "!"},
      {{gzip}, whole + "\x1F", page + "!", page + "!"},
      {{gzip}, damaged, page + "!", page + "!"},
      {{gzip}, "<html>", "!", "!"},
      {{zstd}, "<html>", "!", "!"},
      {{brotli}, "<html>", "!", "!"},
      {{deflate}, "\x78\x9E", "!", "!"}};
  for (const auto &[codings, body, text, shown] : cases) {
    for (const size_t size : {1, 997, 1 << 20}) {
      for (const bool isShown : {false, true}) {
        const string got = decode(codings, body, size, size, isShown), expected = isShown ? shown : text;
        const bool isPart = expected == "...!" && got.back() == '!' && page.starts_with(got.substr(0, got.size() - 1));
        EXPECT_TRUE(got == expected || isPart) << testing::PrintToString(body) << " by " << size;
      }
    }
  }
}

TEST(DecodeCodings, RefusesBombsButNotShortRepetitiveTexts) {
  const string megabyte(1 << 20, 'a'), two = megabyte + megabyte;
  for (const Coding coding : {Coding::gzip, Coding::brotli, Coding::zstd}) {
    EXPECT_EQ(decode({coding}, coded(coding, megabyte), 4096, 4096).size(), megabyte.size());
    EXPECT_EQ(decode({coding}, coded(coding, two), 4096, 4096), megabyte + string(4096, 'a') + "!");
  }
  EXPECT_LT(decode({Coding::gzip, Coding::brotli}, coded(Coding::gzip, coded(Coding::brotli, string(64 << 20, 'a'))),
                   4096, 65536)
                .size(),
            two.size());
  const string inner = coded(Coding::gzip, "text") + string(64 << 20, 'r'); /* which the second coding drops */
  EXPECT_EQ(decode({Coding::zstd, Coding::gzip}, coded(Coding::zstd, inner), 4096, 4096), "text!");
  string mixed = two;
  for (size_t i = 0; i < mixed.size(); i += 64) mixed[i] = static_cast<char>(i * 2654435761u >> 24);
  EXPECT_TRUE(decode({Coding::deflate}, coded(Coding::deflate, mixed), 4096, 65536) == mixed);
  for (const auto &[ratio, expected] : {std::pair{19, Parse::done}, {21, Parse::bad}}) {
    CodingChain chain;
    startCodings(chain, {{Coding::gzip}, 1}, false);
    chain.each[0].given = 256u << 20; /* bytes that came before */
    chain.each[0].taken = (256u << 20) / static_cast<unsigned>(ratio);
    size_t used = 0, produced = 0;
    char out[8];
    EXPECT_EQ(decodeCodings(chain, coded(Coding::gzip, "ab"), used, out, sizeof out, produced), expected) << ratio;
  }
}

/* A client that has all that was put in so far could read all that came out, and no more. */
TEST(DecodeCodings, HoldsNothingBackWhileThereIsRoom) {
  string page;
  for (int i = 0; i < 3000; i++) page += std::to_string(i * 7919 % 1013);
  const string body = coded(Coding::brotli, page);
  CodingChain chain;
  startCodings(chain, {{Coding::brotli}, 1}, false);
  string out(page.size() + 100, '\0'), more(100, '\0');
  for (const char &byte : body) {
    size_t used = 0, produced = 0;
    decodeCodings(chain, {&byte, 1}, used, out.data(), out.size(), produced);
    decodeCodings(chain, {}, used, more.data(), more.size(), produced);
    ASSERT_EQ(produced, 0U);
  }
}

TEST(ContentCodings, AreReadInAnyCaseAndAskedForWhereTheyCanBeRead) {
  const auto ask = [](const string &fields) {
    HeadScan scan;
    size_t used = 0;
    Header header;
    scanHead(scan, "GET / HTTP/1.1\r\n" + fields + "\r\n\r\n", used);
    headToLines(scan, header);
    const ContentCodings codings = readContentCodings(header.first);
    string text = codingsToAskFor(header.first) + (codings.known ? "" : " unknown");
    for (size_t i = 0; i < codings.count; i++) text += " " + std::to_string(static_cast<int>(codings.each[i]));
    destroyHeader(&header);
    return text;
  };
  const std::pair<string, string> cases[] = {
      {"X: y", "identity"},
      {"Accept-Encoding: sdch, GZip;q=0.5 , compress, br;Q=1.000\r\nAccept-Encoding:zstd",
       "GZip;q=0.5, br;Q=1.000, zstd"},
      {"Accept-Encoding: *, gzip;q=0, br; q=0.0, deflate;q=2, zstd;x=1;q=1,;q=1, ", "identity"},
      {"Accept-Encoding: identity;q=0.5, gzip;\tq=0.001", "identity;q=0.5, gzip;q=0.001"},
      {"Content-Encoding: GZIP, , Identity", "identity 1"},
      {"Content-Encoding: gzip\r\nContent-Encoding: BR", "identity 3 1"},
      {"Content-Encoding: gzip, br, zstd", "identity unknown 3 1"},
      {"Content-Encoding: compress", "identity unknown"}};
  for (const auto &[fields, expected] : cases) EXPECT_EQ(ask(fields), expected) << fields;
}

}  // namespace
