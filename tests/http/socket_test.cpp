#include "http/socket.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <chrono>
#include <climits>

#include "http/socketLine.h"
#include "tests/support/support.h"

using std::chrono::milliseconds;

namespace {

using ReadLine = char *(*)(int, unsigned *, unsigned char *, int);
constexpr ReadLine lineReaders[] = {getSocketLine, netsift::getSocketLineByBytes};
using Line = std::pair<string, int>; /* the text with its terminator, and the status */

char *untilEnd(int fd, unsigned *length, unsigned char *status, int) { return getSocketLine1(fd, length, status); }

Line line(string text, int status = NETSIFT_LINE_READ) { return {text + '\0', status}; }

Line lineFrom(ReadLine readLine, int fd, unsigned max, int limit = 0) {
  unsigned char status = 77;
  char *text = readLine(fd, &max, &status, limit);
  const Line read(text == nullptr ? "<none>" : string(text, max + 1), status);
  std::free(text);
  return read;
}

TEST(SocketLine, LookingAheadGivesWhatReadingByBytesGives) {
  const unsigned seed = 29;
  std::mt19937 random(seed);
  const auto upTo = [&](unsigned limit) { return 1 + random() % limit; };
  for (int trial = 0; trial < 60; trial++) {
    string bytes(upTo(6000), '\0'), all;
    for (char &byte : bytes) byte = upTo(trial % 3 == 0 ? 5000 : 300) == 1 ? '\n' : static_cast<char>(upTo(200) + 10);
    std::vector<string> pieces;
    for (size_t at = 0; at < bytes.size(); at += pieces.back().size()) pieces.push_back(bytes.substr(at, upTo(900)));
    const auto max = static_cast<unsigned>(upTo(trial % 2 == 0 ? 40 : 2000));
    std::vector<Line> lines[2];
    for (int which = 0; which < 2; which++) {
      SocketPair pair;
      std::thread peer([&] {
        for (const string &piece : pieces) pair.send(piece), std::this_thread::yield();
        pair.closeFar();
      });
      do lines[which].push_back(lineFrom(lineReaders[which], pair.near, max));
      while (lines[which].back().second == 0);
      peer.join();
    }
    EXPECT_EQ(lines[0], lines[1]) << "seed " << seed << ", trial " << trial;
    for (const Line &read : lines[0]) {
      EXPECT_LE(read.first.size(), max + 1);
      all.append(read.first, 0, read.first.size() - 1);
    }
    EXPECT_EQ(all, bytes) << "seed " << seed << ", trial " << trial;
  }
}

TEST(SocketLine, CountsAFailedReadAsAByte) {
  for (ReadLine readLine : lineReaders) {
    SocketPair pair;
    fcntl(pair.near, F_SETFL, O_NONBLOCK);
    pair.send("a");
    EXPECT_EQ(lineFrom(readLine, pair.near, 0), line(""));
    EXPECT_EQ(lineFrom(readLine, pair.near, 600), line('a' + string(599, '\0')));
    pair.send("a");
    EXPECT_EQ(lineFrom(readLine, pair.near, 9000), line('a' + string(8999, '\0'))); /* however many in a row */
    pair.send("ab");
    ASSERT_EQ(write(pair.near, "unread", 6), 6); /* closing over it resets the connection */
    pair.closeFar();
    EXPECT_EQ(lineFrom(readLine, pair.near, 100), line(string("ab\0", 3), 1));
  }
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "a\nb", 3), 3);
  close(ends[1]);
  EXPECT_EQ(lineFrom(getSocketLine, ends[0], 100), line("a\n"));
  EXPECT_EQ(lineFrom(getSocketLine, ends[0], 100), line("b", NETSIFT_LINE_ENDED));
  close(ends[0]);
  EXPECT_EQ(lineFrom(getSocketLine, ends[0], 100), Line("<none>", NETSIFT_LINE_FAILED));
}

TEST(SocketLine, LimitsTheWaitForTheFirstByteOnly) {
  const SocketPair pair;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(lineFrom(getSocketLine, pair.near, 0, 1), Line("<none>", NETSIFT_LINE_TIMED_OUT));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(990));
  pair.send("GET / HT");
  std::thread late([&] { std::this_thread::sleep_for(milliseconds(1200)), pair.send("TP/1.0\n"); });
  EXPECT_EQ(lineFrom(getSocketLine, pair.near, 100, 1), line("GET / HTTP/1.0\n"));
  late.join();
}

TEST(BlockRead, StopsWhereItShould) {
  const rlimit descriptors{2000, 2000};
  setrlimit(RLIMIT_NOFILE, &descriptors);
  const std::tuple<unsigned, int, unsigned, int> cases[] = {{10, 4, 10, NETSIFT_READ_FILLED},
                                                            {4, 99, 4, NETSIFT_READ_FILLED},
                                                            {99, 11, 10, NETSIFT_READ_TIMED_OUT},
                                                            {99, 10, 10, NETSIFT_READ_ENDED},
                                                            {99, -1, 10, NETSIFT_READ_ENDED}};
  for (const auto &[length, datalen, count, expected] : cases) {
    SocketPair pair;
    pair.send("0123456789");
    const int high = fcntl(pair.near, F_DUPFD, 1100); /* more than select can wait for */
    const GuardedText buffer(string(length, '?'), false);
    unsigned char status = 77;
    EXPECT_EQ(readFromSocket(high, buffer.get(), length, &status, 0, datalen), count) << length;
    EXPECT_EQ(status, expected) << length << ' ' << datalen;
    close(high);
    EXPECT_EQ(readFromSocket(high, buffer.get(), length, &status, -1, datalen), 0u);
    EXPECT_EQ(status, NETSIFT_READ_FAILED);
  }
}

TEST(Send, SendsAllOrSaysWhy) {
  std::signal(SIGPIPE, SIG_IGN);
  SocketPair pair;
  const string big(3'000'000, 'x');
  const auto size = static_cast<int>(big.size());
  std::thread peer([&, left = size]() mutable {
    for (char piece[4096]; left > 0;) left -= static_cast<int>(read(pair.far, piece, sizeof piece));
  });
  fcntl(pair.near, F_SETFL, O_NONBLOCK); /* so that a write takes a part only */
  EXPECT_EQ(sendToSocket(pair.near, big.data(), size, 5), NETSIFT_SEND_DONE);
  peer.join();
  EXPECT_EQ(sendSocketLine(pair.near, "line\n", 0), 5);
  EXPECT_EQ(pair.receive(), "line\n");
  EXPECT_EQ(sendToSocket(pair.near, "", 0, 0), NETSIFT_SEND_NOTHING_TAKEN);
  EXPECT_EQ(sendToSocket(pair.near, "", INT_MIN, 0), NETSIFT_SEND_FAILED);
  EXPECT_EQ(sendToSocket(pair.near, big.data(), size, 0), NETSIFT_SEND_TIMED_OUT);
  EXPECT_EQ(sendSocketLine(pair.near, "line\n", 0), 0);
  pair.closeFar();
  EXPECT_EQ(sendToSocket(pair.near, "a", 1, -1), -2);
  EXPECT_EQ(sendCRLF(pair.near), -1);
}

TEST(Chunks, EndIsNeverFoundAndSizesAreFoldedByTens) {
  SocketPair pair;
  pair.send("\r\n5\r\n" + string(511, '\n'));
  pair.closeFar();
  EXPECT_EQ(getCRLF(pair.near), -1);
  EXPECT_EQ(lineFrom(untilEnd, pair.near, 0), line(string(512, '\n'), 1)); /* beyond line ends */
  unsigned length = 9;
  unsigned char status = 9;
  std::free(getSocketLine1(-1, &length, &status)); /* what only fails gets no more memory in the end */
  EXPECT_TRUE(length == (1 << 20) - 1 && status == NETSIFT_LINE_FAILED) << length << ' ' << int{status};
  const LogCapture log(7);
  const std::pair<const char *, int> sizes[] = {{"1a\r\n", 20}, {"1F 9\r", 25}, {"", 0},
                                                {"9;", 62},     {"\xff", -88},  {"2147483648 ", INT_MIN}};
  for (const auto &[text, size] : sizes) EXPECT_EQ(getChunkSize(GuardedText(text).get()), size) << text;
  EXPECT_TRUE(log.has("inside getChunkSize") && log.has("exiting getChunkSize: 25"));
}

}  // namespace
