#include "http/decompression.h"

#include <cerrno>
#include <chrono>

#include "http/httpBody_iter.h"
#include "tests/support/support.h"

TEST(ZlibDecompress, InflatesWholePiecemealAndDamaged) {
  const string text = string(100000, 'a') + "b", zlib = compressed(text, 15), damaged = zlib.substr(0, zlib.size() - 1);
  const std::tuple<string, size_t, string, string> cases[] = {
      {zlib, zlib.size() / 3 + 1, text, "-5 -5 1 "}, {damaged + "!", 1000, text, "-3 "}, {"\x1f\x8b", 2, "", "-3 "}};
  for (const auto &[data, pieceSize, expected, statuses] : cases) {
    z_stream stream; /* nothing of it is set before the first piece */
    string out, codes;
    for (size_t at = 0; at < data.size(); at += pieceSize) {
      auto length = static_cast<unsigned>(std::min(pieceSize, data.size() - at));
      unsigned char status = 99;
      char *inflated = zlibDecompress(data.data() + at, &length, &status, at == 0, &stream);
      out.append(inflated, length);
      free(inflated);
      codes += std::to_string(static_cast<signed char>(status)) + " ";
    }
    inflateEnd(&stream);
    EXPECT_TRUE(codes == statuses && out == expected) << codes << out.size();
  }
  const std::pair<const char *, int> codings[] = {{"x-gzip", NETSIFT_CODING_GZIP},
                                                  {"gzip, identity", NETSIFT_CODING_IDENTITY},
                                                  {"compress, deflate", NETSIFT_CODING_DEFLATE},
                                                  {"compress", NETSIFT_CODING_COMPRESS}};
  for (const auto &[coding, kind] : codings) EXPECT_EQ(isCompressed(coding), kind) << coding;
}

TEST(OpenGzStream, ReadsFromTheSocketOrTimesOut) {
  SocketPair pair;
  gzFile in = nullptr;
  EXPECT_EQ(openGZStream(4000, "r", -1, &in), -1);
  StrictHttp = STRICT_HTTP;
  errno = EINTR; /* left over from an earlier call: only without StrictHttp it makes a time-out wait again */
  EXPECT_EQ(openGZStream(pair.near, "r", 0, &in), -1);
  StrictHttp = 0;
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pair.send(compressed("zipped", 31));
    pair.closeFar(); /* zlib fills its own buffer or waits for the end */
  });
  const int socket = dup(pair.near);
  errno = EINTR;
  ASSERT_EQ(openGZStream(socket, "r", 0, &in), 1);
  late.join();
  char text[7] = "";
  unsigned length = 6;
  EXPECT_EQ(getGZHTTPBody(pair.near, in, text, &length, 1, 6), 0);
  EXPECT_STREQ(text, "zipped");
  gzclose(in);
}

TEST(PreProcessBody, FoldsWhiteSpaceAndCase) {
  const std::pair<string, string> cases[] = {{"  Hello\r\n\tWORLD  ", " hello world"},
                                             {string("a\0 \0\n\0B\0", 8), "a b"},
                                             {string("\0 \0", 3), ""},
                                             {"@[`{ \xc4\xff\v\x01Z", "@[`{ \xc4\xff\v\x01z"},
                                             {"", ""}};
  for (const auto &[body, text] : cases) {
    GuardedText guarded(body, false);
    int length = -1;
    EXPECT_EQ(take(preProcessBody(guarded.get(), static_cast<int>(body.size()), &length)), text);
    EXPECT_EQ(length, static_cast<int>(text.size())) << body;
  }
}
