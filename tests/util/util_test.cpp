#include "tests/support/support.h"
#include "util/escape.h"
#include "util/stringIntHash.h"
#include "util/symbolTable.h"
#include "util/text.h"
#include "util/version.h"

TEST(Version, IsThatOfItsParts) {
  const int parts[] = {NETSIFT_VERSION_MAJOR, NETSIFT_VERSION_MINOR, NETSIFT_VERSION_PATCH};
  std::string joined;
  for (const int part : parts) joined += "." + std::to_string(part);
  EXPECT_EQ(joined.substr(1), netsift_version());
}

TEST(Escape, LeavesNothingThatEndsItsPlace) {
  EXPECT_EQ(htmlEscape("a&<b>\"'\xC3\xA4"), "a&amp;&lt;b&gt;&quot;&#39;\xC3\xA4");
  EXPECT_EQ(logEscape("a \"b\"\\\r\n\t~"), "a \\\"b\\\"\\\\\\r\\n\\t~");
  EXPECT_EQ(logEscape(std::string("\0\x1B\x1F\x7F\x20", 5)), "\\x00\\x1B\\x1F\\x7F ");
  EXPECT_EQ(logEscape("\xC2\x80\xC2\x9F\xC2\xA0\xC3\x9B\xC2"), "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x9B\xC2");
}

TEST(SymbolTable, FindsTheNewestSymbolOfAWholeName) {
  SymbolTable *table = sym_create_table_(nullptr, 0);
  for (const char *name : {"ab", "ba", "", "\xff\x80"}) {
    Symbol *older = sym_create_symbol_(table, name, "1", nullptr, 0);
    Symbol *newer = sym_create_symbol_(table, name, "2", nullptr, 0);
    EXPECT_EQ(sym_lookup_symbol(table, name), newer) << name;
    EXPECT_TRUE(table->symbols == newer && newer->next == older && older->previous == newer) << name;
    EXPECT_TRUE(newer->chainNext == older && older->chainPrevious == newer && newer->chainPrevious == nullptr) << name;
  }
  EXPECT_EQ(sym_lookup_symbol(table, "\xff\x80")->bucket, 127); /* -1 - 128, modulo 256 */
  EXPECT_EQ(sym_lookup_symbol(table, "abc"), nullptr);
  sym_delete_table(table, nullptr, 0);
}

TEST(Trim, CutsWhiteSpaceAtBothEndsInPlace) {
  for (const auto &[text, trimmed] :
       {std::pair(" \t\r\n", ""), {"", ""}, {"\v  a b \r\n", "a b"}, {"\xa0 a \xa0", "\xa0 a \xa0"}})
    EXPECT_STREQ(trim(test::GuardedText(text).get()), trimmed);
}

TEST(StringIntHash, HashesSignedGrowsShrinksAndLosesNothing) {
  EXPECT_EQ(hash_string("www.example.org/index.html\n"), -921965461);
  EXPECT_EQ(hash_string("\x80\x81 !"), -73448);
  std::vector<std::string> keys(36);
  string_int_hash *map = string_int_hash_new();
  for (size_t i = 0; i < 72; i++) { /* each one is set, then replaced */
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
