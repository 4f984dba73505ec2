#include "tests/http/strictHeads.h"
#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

const string get = "GET / HTTP/1.1\r\n", ok = "HTTP/1.1 200 OK\r\n";

/* The fault's status after how many bytes, or the head that was gathered and what is left; the same by any pieces. */
string scan(const string &text, bool response = false) {
  GuardedText guarded(text, false);
  string outcome, first;
  for (const size_t pieceSize : {text.size(), size_t{1}, size_t{7}}) {
    HeadScan scan;
    scan.response = response;
    Parse answer = Parse::more;
    size_t total = 0;
    for (size_t used = 0; answer == Parse::more && total < text.size(); total += used) {
      answer = scanHead(scan, {guarded.get() + total, std::min(pieceSize, text.size() - total)}, used);
    }
    outcome = std::to_string(scan.fault.status) + " at " + std::to_string(total);
    if (answer != Parse::bad) outcome = answer == Parse::more ? "more" : scan.text + "|" + text.substr(total);
    if (pieceSize == text.size()) first = outcome;
    EXPECT_TRUE(outcome == first) << testing::PrintToString(text) << " by " << pieceSize << ": " << outcome;
  }
  return outcome;
}

string at(int status, size_t size) { return std::to_string(status) + " at " + std::to_string(size); }

}  // namespace

TEST(ScanHead, StopsBehindTheEmptyLineOrAtTheByteThatSpoilsTheHead) {
  EXPECT_EQ(scan(get + "\r\nGET"), get + "\r\n|GET");
  EXPECT_EQ(scan("\r\n" + get + "B:\t: \x01\xFF \r\nC:\r\n\r\n"), get + "B:\t: \x01\xFF \r\nC:\r\n\r\n|");
  EXPECT_EQ(scan(ok + "A \t: b\r\n\r\nx", true), ok + "A: b\r\n\r\n|x");
  EXPECT_EQ(scan(get + "A: b\r\n\r"), "more");
  for (const string &spoilt :
       {string("\r\n\r\n"), string("\n"), get + "A: b\n", get + "A: b\rX", get + "\rG", get + "A: b\r\r", get + "\n",
        get + string("A: \0", 4), get + "A: b\r\n ", get + "\t", get + "A ", get + ":", get + "A\r", get + "A\x80",
        string("GET /\r\n"), string("GET  / HTTP/1.1\r\n"), string("GET / HTTP/1.1 \r\n"),
        string("\x16\x03\x01\0", 4)}) {
    EXPECT_EQ(scan(spoilt + ":\r\n\r\n"), at(400, spoilt.size())) << testing::PrintToString(spoilt);
  }
  EXPECT_EQ(scan("PRI * HTTP/2.0\r\n\r\n"), at(505, 16));
  for (const string &spoilt : {ok + "A b", ok + "A: b\r\n\t", string("\r\n"), string("SSH-2.0-x\r\n"), ok + "A\r"}) {
    EXPECT_EQ(scan(spoilt + ":\r\n\r\n", true), at(502, spoilt.size())) << testing::PrintToString(spoilt);
  }
}

TEST(ScanHead, HoldsTheLimitsToTheByte) {
  const string line = "GET /" + string(8192 - 14, 'a') + " HTTP/1.1\r\n\r\n";
  EXPECT_EQ(scan(line), line + "|");
  EXPECT_EQ(scan("a" + line), at(414, 8193));
  string fields = get;
  for (int i = 0; i < 100; i++) fields += "A: b\r\n";
  EXPECT_EQ(scan(fields + "\r\n"), fields + "\r\n|");
  EXPECT_EQ(scan(fields + "A: b\r\n\r\n"), at(431, fields.size() + 1));
  const string most = get + "A:" + string(65536 - 22, 'b') + "\r\n\r\n";
  EXPECT_EQ(scan(most), most + "|");
  EXPECT_EQ(scan("\r\n" + most), at(431, 65537));
  EXPECT_EQ(scan(ok + "A" + string(70000, ' '), true), at(502, 65537)); /* blanks that are taken out count too */
}

TEST(HeadToLines, CountsLinesAndBytes) {
  const ScannedHead head(get + "A: b");
  EXPECT_EQ(head.text(), get + "A: b\r\n\r\n");
  EXPECT_EQ(head.header.totalBytes, 24u);
  EXPECT_EQ(head.header.lineCount, 3u);
}
