#include "scan/virusWhitelist.h"

#include <gdbm.h>
#include <gtest/gtest.h>

#include "state/settings.h"
#include "tests/support/support.h"

using namespace netsift::test;

TEST(VirusWhitelist, EntriesMatchAsSubstrings) {
  const struct {
    const char *file, *text, *printed;
    int result;
  } cases[] = {{"none\n \t image/ \r\nother\n", "image/png", "", 1},
               {"none\nimage/", "image/png", "", 0},  // a last line without its end
               {"none\n\n", "anything", "", 1},       // an empty entry
               {"a\na\n?a\n-a\n?a\n", "a", "1 occurrence seen\nRemoved0 occurrences seen\n", 0},
               {"a\nb\nb\nc\n-b\nb\n?c\n?b\n", "b", "Removed2 occurrences seen\n3 occurrences seen\n", 1}};
  const ScratchRoot root;
  const std::string path = root.config("list");
  for (const auto &c : cases) {
    writeFile(path, c.file);
    testing::internal::CaptureStdout();
    EXPECT_EQ(inVirusWhiteList_hash(c.text, path.c_str()), c.result) << c.file;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.file;
  }
  for (const char *unreadable : {"/no/such/list", root.path().c_str()}) {
    EXPECT_EQ(inVirusWhiteList_hash("a", unreadable) + isDom_vir_wl(unreadable, "a"), 0);
  }
  memset(viruswhitelist[0], 'x', 100);  // no room for a zero byte
  EXPECT_EQ(inVirusWhiteList(std::string(100, 'x').c_str()), 1);
  EXPECT_EQ(inVirusWhiteList(std::string(99, 'x').c_str()), 0);
  GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0666, nullptr);
  char key[] = ".org.";
  gdbm_store(file, {key, 4}, {key, 1}, GDBM_INSERT);  // a key that does not end in a zero byte
  gdbm_close(file);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "example.org"), 1);
}
