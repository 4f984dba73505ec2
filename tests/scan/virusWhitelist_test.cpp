#include "scan/virusWhitelist.h"

#include <gdbm.h>
#include <gtest/gtest.h>

#include <cstring>

#include "state/settings.h"
#include "tests/support/support.h"

using namespace netsift::test;

namespace {

TEST(VirusWhitelist, FileEntriesMatchAsSubstrings) {
  const std::string longEntry(300, 'l');
  const struct {
    std::string file, text;
    int32_t result;
    std::string printed;
  } cases[] = {
      {"example.org\n", "www.example.org.evil.net", 1, ""},
      {"example.org\n", "www.example.net", 0, ""},
      {"none\n \t image/ \r\nother\n", "image/png", 1, ""},
      {"none\nimage/", "image/png", 0, ""},  // no line end: not read
      {"none\n\n", "anything", 1, ""},       // an entry of white space matches every text
      {"", "anything", 0, ""},
      {"a\na\n?a\n-a\n?a\n", "a", 0, "1 occurrence seen\nRemoved0 occurrences seen\n"},
      {"a\nb\nb\nc\n-b\nb\n?c\n?b\n-absent\n", "b", 1, "Removed2 occurrences seen\n3 occurrences seen\nRemoved"},
      {longEntry + "\n", std::string(255, 'l'), 1, ""},  // read as a line of 255 and the rest
      {std::string("a\0b\n", 4), "a", 1, ""},
  };
  for (const auto &c : cases) {
    ScratchRoot root;
    writeFile(root.config("list"), c.file);
    testing::internal::CaptureStdout();
    EXPECT_EQ(inVirusWhiteList_hash(c.text.c_str(), root.config("list").c_str()), c.result) << c.file;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.file;
  }
  ScratchRoot root;
  EXPECT_EQ(inVirusWhiteList_hash("a", root.config("missing").c_str()), 0);
  EXPECT_EQ(inVirusWhiteList_hash("a", root.path().c_str()), 0);  // a folder: opens, does not read
  EXPECT_EQ(inVirusWhiteList_hash(nullptr, root.config("missing").c_str()), 0);
}

TEST(VirusWhitelist, ManyEntriesOfOneFile) {
  ScratchRoot root;
  std::string lines;
  for (int i = 0; i < 500; i++) lines += "host" + std::to_string(i) + ".example\n";
  for (int i = 0; i < 499; i++) lines += "-host" + std::to_string(i) + ".example\n";
  writeFile(root.config("list"), lines);
  testing::internal::CaptureStdout();
  EXPECT_EQ(inVirusWhiteList_hash("host499.example", root.config("list").c_str()), 1);
  EXPECT_EQ(inVirusWhiteList_hash("host498.example", root.config("list").c_str()), 0);
  testing::internal::GetCapturedStdout();
}

TEST(VirusWhitelist, TableEndsAtItsFirstEmptySlot) {
  LogCapture log(7);
  std::memset(viruswhitelist[0], 'x', 100);  // no room for a zero byte
  strcpy(viruswhitelist[1], "example");
  strcpy(viruswhitelist[3], "later");
  EXPECT_EQ(inVirusWhiteList("www.example.org"), 1);
  EXPECT_EQ(inVirusWhiteList(std::string(100, 'x').c_str()), 1);
  EXPECT_EQ(inVirusWhiteList(std::string(99, 'x').c_str()), 0);
  EXPECT_EQ(inVirusWhiteList("later"), 0);
  EXPECT_EQ(inVirusWhiteList(nullptr), 0);
  EXPECT_NE(log.text().find("The listed domain is:[example]"), std::string::npos);
  for (auto &slot : viruswhitelist) strcpy(slot, "full");
  EXPECT_EQ(inVirusWhiteList("x"), 0);
}

TEST(VirusWhitelist, DatabaseKeys) {
  ScratchRoot root;
  const std::string path = root.config("white.db");
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "a"), 0);
  GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0666, nullptr);
  for (std::string key : {std::string("example.org"), std::string("other.net\0", 10)}) {
    gdbm_store(file, {key.data(), static_cast<int>(key.size())}, {key.data(), 1}, GDBM_INSERT);
  }
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "www.example.org"), 0);  // being written
  gdbm_close(file);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "www.example.org"), 1);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "www.other.net"), 1);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "example"), 0);
}

}  // namespace
