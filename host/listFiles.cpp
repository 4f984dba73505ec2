#include "host/listFiles.h"

#include <unistd.h>

#include <algorithm>

#include "host/files.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace netsift::host {

ListFiles listFiles(std::string_view name) {
  std::string base = configPath(name), reported(name);
  reported.append(reportedSuffix);
  return {base + ".url", base + ".url.orig", base + ".phrase", configPath(reported) + ".url.orig", base + ".dom"};
}

std::vector<std::string> loadedLists() {
  std::vector<std::string> names = {"whitelist", "adserver", "popup"};
  for (int i = 0; i < numcategories; i++) {
    if (std::ranges::find(names, categfiles[i]) == names.end()) names.emplace_back(categfiles[i]);
  }
  return names;
}

bool isBlocking(std::string_view name) { return name != "whitelist" && name != "popup"; }

bool hasSources(const ListFiles &files) { return exists(files.original) && exists(files.phrase); }

bool canBeMade(const ListFiles &files) {
  return hasSources(files) && mayAccess(files.original, R_OK | W_OK) && mayAccess(files.phrase, R_OK | W_OK) &&
         mayAccess(rooted(configFolder), W_OK) && (!exists(files.url) || mayAccess(files.url, W_OK));
}

}  // namespace netsift::host
