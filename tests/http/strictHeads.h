/* Heads for the tests of what is read from them. */
#ifndef NETSIFT_TESTS_STRICTHEADS_H
#define NETSIFT_TESTS_STRICTHEADS_H

#include <gtest/gtest.h>

#include "http/httpHeader.h"
#include "http/strictHead.h"

namespace netsift::test {

/* The lines of a head that the scan must pass, written without the last CR LF and the empty line. */
struct ScannedHead {
  Header header{};
  explicit ScannedHead(const std::string &lines) {
    HeadScan scan;
    scan.response = lines.starts_with("HTTP/");
    size_t used = 0;
    EXPECT_EQ(scanHead(scan, lines + "\r\n\r\n", used), Parse::done) << scan.fault.text << lines;
    headToLines(scan, header);
  }
  ~ScannedHead() { destroyHeader(&header); }
  ScannedHead(const ScannedHead &) = delete;
  std::string text() const {
    std::string all;
    for (const HeaderLine *line = header.first; line != nullptr; line = line->next) all += line->text;
    return all;
  }
};

}  // namespace netsift::test

#endif
