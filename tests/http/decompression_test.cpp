#include "http/decompression.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "http/httpBody_iter.h"
#include "tests/support/support.h"

using std::string;

TEST(ZlibDecompress, InflatesWholePiecemealAndDamaged) {
  const string text = string(100000, 'a') + "b";
  const string zlib = netsift::test::compressed(text, 15), wrongSum = zlib.substr(0, zlib.size() - 1) + "!";
  const std::tuple<string, size_t, string, string> cases[] = {
      {zlib, zlib.size() / 3 + 1, text, "-5 -5 1 "}, {wrongSum, 1000, text, "-3 "}, {"\x1f\x8b", 2, "", "-3 "}};
  for (const auto &[data, pieceSize, expected, statuses] : cases) {
    z_stream stream;  // nothing of it is set before the first piece
    string out, codes;
    for (size_t at = 0; at < data.size(); at += pieceSize) {
      const string piece = data.substr(at, pieceSize);
      unsigned length = static_cast<unsigned>(piece.size());
      unsigned char status = 99;
      char *inflated = zlibDecompress(piece.data(), &length, &status, at == 0, &stream);
      out.append(inflated, length);
      free(inflated);
      codes += std::to_string(static_cast<signed char>(status)) + " ";
    }
    inflateEnd(&stream);
    EXPECT_EQ(codes, statuses);
    EXPECT_TRUE(out == expected) << statuses << out.size();
  }
}

TEST(OpenGzStream, ReadsFromTheSocketOrTimesOut) {
  netsift::test::SocketPair pair;
  gzFile in = nullptr, out = gzdopen(dup(pair.far), "w");
  errno = EINTR;  // left over from an earlier call
  EXPECT_EQ(openGZStream(pair.near, "r", 0, &in), -1);
  EXPECT_EQ(openGZStream(4000, "r", -1, &in), -1);
  gzputs(out, "zipped");
  gzclose(out);
  pair.closeFar();  // zlib fills its own buffer or waits for the end
  ASSERT_EQ(openGZStream(dup(pair.near), "r", 1, &in), 1);
  char text[7] = "";
  unsigned length = 6;
  EXPECT_EQ(getGZHTTPBody(pair.near, in, text, &length, 1, 6), 0);
  EXPECT_STREQ(text, "zipped");
  gzclose(in);
  EXPECT_EQ(isCompressed("x-gzip") + isCompressed("gzip, identity") + isCompressed("compress, deflate"), 1 + 0 + 2);
}
