#include "scan/stringIntHash.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Map {
  string_int_hash *hash = string_int_hash_new();
  std::vector<std::string> keys;
  explicit Map(int count) : keys(static_cast<size_t>(count)) {
    for (int i = 0; i < count; i++) {
      keys[static_cast<size_t>(i)] = "key" + std::to_string(i);
      string_int_hash_set(hash, keys[static_cast<size_t>(i)].data(), i);
    }
  }
  ~Map() {
    string_int_hash_clear(hash);
    std::free(hash);
  }
};

TEST(StringIntHash, HashIsSignedAndWraps) {
  const struct {
    const char *text;
    int32_t hash;
  } cases[] = {{"", 0},
               {"a", 57},
               {"ab", 514},
               {"\xff", -1},
               {"image/\n", 19570370},
               {"www.example.org/index.html\n", -921965461},
               {"\x80\x81"
                "AAAAAAAAAAAAA",
                1227107757}};
  for (const auto &c : cases) EXPECT_EQ(hash_string(c.text), c.hash) << c.text;
}

TEST(StringIntHash, GrowsAndShrinksAtItsThresholds) {
  const struct { int entries, buckets; } grown[] = {{0, 0}, {1, 14}, {12, 14}, {13, 42}, {35, 42}, {36, 98}};
  for (const auto &c : grown) EXPECT_EQ(Map(c.entries).hash->buckets, c.buckets) << c.entries;

  Map map(13);  // 42 buckets: the first removal already leaves more than three a key
  string_int_hash_remove(map.hash, "absent");
  EXPECT_EQ(map.hash->buckets, 42);
  for (const auto &[left, buckets] :
       std::vector<std::pair<int, int>>{{12, 16}, {6, 16}, {5, 8}, {2, 4}, {1, 3}, {0, 2}}) {
    while (map.hash->entries > left) {
      string_int_hash_remove(map.hash, map.keys[static_cast<size_t>(map.hash->entries) - 1].c_str());
    }
    EXPECT_EQ(map.hash->buckets, buckets) << left;
    for (int i = 0; i < 13; i++) {
      const int32_t *value = string_int_hash_get(map.hash, map.keys[static_cast<size_t>(i)].c_str());
      EXPECT_EQ(value == nullptr ? -1 : *value, i < left ? i : -1) << left;
    }
  }
}

TEST(StringIntHash, KeepsPointersAndReplacesValues) {
  Map map(100);
  std::string same = "key7";
  string_int_hash_set(map.hash, same.data(), 70);
  EXPECT_EQ(map.hash->entries, 100);
  EXPECT_EQ(*string_int_hash_get(map.hash, "key7"), 70);
  EXPECT_EQ(netsift::storedKey(map.hash, "key7"), map.keys[7].data());

  string_int_hash_resize(map.hash, -5);  // two buckets: long chains, everything still there
  EXPECT_EQ(map.hash->buckets, 2);
  int64_t sum = 0, pairs = 0;
  for (auto at = string_int_hash_first(map.hash); !string_int_hash_done(&at); string_int_hash_next(&at), pairs++) {
    sum += string_int_hash_value(&at);
  }
  EXPECT_EQ(pairs, 100);
  EXPECT_EQ(sum, 99 * 100 / 2 + 63);

  string_int_hash_resize(map.hash, INT32_MAX);  // more buckets than can be counted
  EXPECT_EQ(map.hash->buckets, 2);
  string_int_hash_clear(map.hash);
  EXPECT_FALSE(string_int_hash_contains_key(map.hash, "key7"));
  const auto end = string_int_hash_first(map.hash);
  EXPECT_EQ(string_int_hash_key(&end), nullptr);
}

}  // namespace
