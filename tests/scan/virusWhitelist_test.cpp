#include "scan/virusWhitelist.h"

#include <gdbm.h>

#include "tests/support/support.h"

TEST(VirusWhitelist, EntriesMatchAsSubstrings) {
  const std::tuple<const char *, const char *, int> cases[] = {
      {"none\n \t image/ \r\nother\n", "image/png", 1},
      {"none\nimage/", "image/png", 0}, /* a last line without its end */
      {"none\n\n", "anything", 1},      /* an empty entry */
      {"b\nb\n?b\n-b\n", "?b-b", 0}};   /* lines that ask and take back */
  const ScratchRoot root;
  const std::string path = root.config("list");
  for (const auto &[file, text, result] : cases) {
    writeFile(path, file);
    EXPECT_EQ(inVirusWhiteList_hash(text, path.c_str()), result) << file;
  }
  EXPECT_EQ(inVirusWhiteList_hash("a", "/no/such/list") + isDom_vir_wl("/no/such/list", "a"), 0);
  memset(viruswhitelist[0], 'x', 100); /* no room for a zero byte */
  for (size_t size : {99, 100}) EXPECT_EQ(inVirusWhiteList(std::string(size, 'x').c_str()), size == 100);
  GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0666, nullptr);
  char key[] = ".org.";
  gdbm_store(file, {key, 4}, {key, 1}, GDBM_INSERT); /* a key that does not end in a zero byte */
  gdbm_close(file);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "example.org"), 1);
}
