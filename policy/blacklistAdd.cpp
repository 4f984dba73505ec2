#include "policy/blacklistAdd.h"

#include <cstdio>
#include <cstring>

#include "log/debugLog.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace {

bool isBlacklistName(const char *name) {
  bool found = false;
  for (int i = 0; i < numcategories; i++) {
    if (std::strcmp(name, categfiles[i]) == 0) found = true;
  }
  return found;
}

/* The table of blacklist `category`, or null when there is no such list. */
SymbolTable *tableOf(int category) {
  return category < numcategories && categories != nullptr ? categories[category].table : nullptr;
}

}  // namespace

void addURLToList(int category, const char *url) {
  if (category < 0 || categfiles1 == nullptr || url == nullptr) {
    dprintf(2, "no category %d in addURLToList\n", category);
    return;
  }
  const char *name = categfiles1[category];
  dprintf(5, "adding url to black list %s\n", name);

  SymbolTable *table = nullptr;
  if (isBlacklistName(name)) {
    table = tableOf(category);
    if (table == nullptr) {
      dprintf(2, "no list %d in addURLToList\n", category);
      return;
    }
    if (sym_lookup_symbol(table, url) != nullptr) return;
  }

  const netsift::Text path = netsift::installPath({netsift::configFolder, name, ".url.orig"});
  if (!path) {
    dprintf(2, "memory allocation failed in addURLToList\n");
    return;
  }
  FILE *file = std::fopen(path.get(), "a");
  if (file == nullptr) {
    dprintf(2, "error opening URL filein addURLToList\n"); /* sic */
    return;
  }
  if (table != nullptr) std::fprintf(file, "%s\n", url);
  std::fclose(file);
  dprintf(5, "url added to file\n");
  if (table != nullptr && sym_create_symbol_(table, url, "", nullptr, 0) == nullptr) {
    dprintf(2, "failed in adding URL to symtable\n");
  }
}
