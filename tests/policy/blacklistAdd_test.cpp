#include "policy/blacklistAdd.h"

#include <gtest/gtest.h>

#include "policy/urlList.h"
#include "state/settings.h"
#include "tests/support/support.h"
#include "util/file.h"

namespace {

using namespace netsift::test;

TEST(BlacklistAdd, AddsOnceToTheTableOfTheSameIndex) {
  const ScratchRoot root;
  char games[] = "games", shop[] = "shop", alone[] = "alone";
  char *urlNames[] = {games, shop}, *phraseNames[] = {shop, games, alone, shop};
  for (const char *file : {"games.url", "games.dom", "shop.url", "shop.dom"}) writeFile(root.config(file), "");
  categfiles = urlNames;
  categfiles1 = phraseNames;
  numcategories = 2;
  numcategories1 = 4;
  ASSERT_EQ(makeBlackLists(), 1);

  addURLToList(0, "a.com/x");
  addURLToList(0, "a.com/x");
  EXPECT_EQ(readFile(root.config("shop.url.orig")), "a.com/x\n");
  EXPECT_NE(sym_lookup_symbol(categories[0].table, "a.com/x"), nullptr);

  addURLToList(2, "b.com"); /* no blacklist of that name */
  EXPECT_EQ(get_file_size(root.config("alone.url.orig").c_str()), 0);
  for (int category : {-1, 3, 4, 255, 1 << 30}) addURLToList(category, "c.com"); /* 3: named, but without a table */
  EXPECT_EQ(readFile(root.config("shop.url.orig")), "a.com/x\n");
  freeBlackLists();
}

}  // namespace
