#include "util/symbolTable.h"

#include <gtest/gtest.h>

TEST(SymbolTable, FindsTheNewestSymbolOfAWholeName) {
  SymbolTable *table = sym_create_table_(nullptr, 0);
  for (const char *name : {"ab", "ba", "", "\xff\x80"}) {
    Symbol *older = sym_create_symbol_(table, name, "1", nullptr, 0);
    Symbol *newer = sym_create_symbol_(table, name, "2", nullptr, 0);
    EXPECT_EQ(sym_lookup_symbol(table, name), newer) << name;
    EXPECT_TRUE(table->symbols == newer && newer->next == older && older->previous == newer) << name;
    EXPECT_TRUE(newer->chainNext == older && older->chainPrevious == newer && newer->chainPrevious == nullptr) << name;
  }
  EXPECT_EQ(table->symbolCount, 8);
  EXPECT_EQ(sym_lookup_symbol(table, "ab")->bucket, sym_lookup_symbol(table, "ba")->bucket);
  EXPECT_EQ(sym_lookup_symbol(table, "\xff\x80")->bucket, 127);  // -1 - 128, modulo 256
  for (const char *name : {"AB", "a", "abc"}) EXPECT_EQ(sym_lookup_symbol(table, name), nullptr) << name;
  sym_delete_table(table, nullptr, 0);
}
