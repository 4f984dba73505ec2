#include "scan/virusWhitelist.h"

#include <gdbm.h>

#include "tests/support/support.h"
#include "util/stringIntHash.h"

using namespace netsift::test;

TEST(VirusWhitelist, EntriesMatchAsSubstrings) {
  const std::tuple<const char *, const char *, int> cases[] = {
      {"none\n \t image/ \r\nother\n", "image/png", 1},
      {"none\nimage/", "image/png", 0},  // a last line without its end
      {"none\n\n", "anything", 1},       // an empty entry
      {"b\nb\n?b\n-b\n", "?b-b", 0}};    // lines that ask and take back
  const ScratchRoot root;
  const std::string path = root.config("list");
  for (const auto &[file, text, result] : cases) {
    writeFile(path, file);
    EXPECT_EQ(inVirusWhiteList_hash(text, path.c_str()), result) << file;
  }
  EXPECT_EQ(inVirusWhiteList_hash("a", "/no/such/list") + isDom_vir_wl("/no/such/list", "a"), 0);
  memset(viruswhitelist[0], 'x', 100);  // no room for a zero byte
  for (size_t size : {99, 100}) EXPECT_EQ(inVirusWhiteList(std::string(size, 'x').c_str()), size == 100);
  GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0666, nullptr);
  char key[] = ".org.";
  gdbm_store(file, {key, 4}, {key, 1}, GDBM_INSERT);  // a key that does not end in a zero byte
  gdbm_close(file);
  EXPECT_EQ(isDom_vir_wl(path.c_str(), "example.org"), 1);
}

TEST(StringIntHash, HashesSignedGrowsShrinksAndLosesNothing) {
  EXPECT_EQ(hash_string("www.example.org/index.html\n"), -921965461);
  EXPECT_EQ(hash_string("\x80\x81 !"), -73448);
  std::vector<std::string> keys(36);
  string_int_hash *map = string_int_hash_new();
  for (size_t i = 0; i < 72; i++) {  // each one is set, then replaced
    keys[i / 2] = "key" + std::to_string(i / 2);
    string_int_hash_set(map, keys[i / 2].data(), static_cast<int>(i));
  }
  EXPECT_EQ(map->buckets, 98);
  for (size_t i = 0; i < 36; string_int_hash_remove(map, keys[i++].c_str())) {
    const int *value = string_int_hash_get(map, keys[i].c_str());
    EXPECT_TRUE(value != nullptr && *value == static_cast<int>(2 * i + 1)) << i;
  }
  EXPECT_TRUE(map->buckets == 2 && map->entries == 0);
  string_int_hash_clear(map), free(map);
}
