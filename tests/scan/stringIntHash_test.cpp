#include "scan/stringIntHash.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

TEST(StringIntHash, HashesSignedGrowsShrinksAndLosesNothing) {
  EXPECT_EQ(hash_string("www.example.org/index.html\n"), -921965461);
  EXPECT_EQ(hash_string("\x80\x81 !"), -73448);

  std::vector<std::string> keys;
  for (int i = 0; i < 36; i++) keys.push_back("key" + std::to_string(i));
  string_int_hash *map = string_int_hash_new();
  std::map<int, int> grown, shrunk;  // buckets by number of entries
  for (int i = 0; i < 72; i++) {     // each one is set, then replaced
    string_int_hash_set(map, keys[static_cast<size_t>(i / 2)].data(), i / 2);
    grown[map->entries] = map->buckets;
  }
  for (int left = 36, sum; left-- > 0; shrunk[left] = map->buckets) {
    string_int_hash_remove(map, keys[static_cast<size_t>(left)].c_str());
    auto at = string_int_hash_first(map);
    for (sum = 0; !string_int_hash_done(&at); string_int_hash_next(&at)) sum += string_int_hash_value(&at);
    EXPECT_EQ(sum, left * (left - 1) / 2) << left;
  }
  EXPECT_EQ((std::vector{grown[12], grown[13], grown[35], grown[36]}), (std::vector{14, 42, 42, 98}));
  EXPECT_EQ((std::vector{shrunk[33], shrunk[32], shrunk[14], shrunk[13]}), (std::vector{98, 40, 40, 17}));
  string_int_hash_clear(map), free(map);
}
