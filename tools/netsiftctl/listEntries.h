/* The entries of the loaded lists with the places that they were written at. */
#ifndef NETSIFT_TOOLS_LISTENTRIES_H
#define NETSIFT_TOOLS_LISTENTRIES_H

#include <string>
#include <string_view>
#include <vector>

namespace netsift::ctl {

/* As it is loaded, which differs from the line where the file has a format or the entry was made of a phrase. */
struct ListEntry {
  std::string text;
  int file; /* in ListEntries */
  int line;
  bool isDomain;
};

struct ListEntries {
  std::string name;
  std::vector<std::string> files;
  std::vector<ListEntry> entries;
};

/* Of one list, by its base name: what a loading now would load. */
ListEntries readEntries(const std::string &name);

/* Whether an entry is met by a host and a URL, as the library's own look-ups have it. */
bool isMet(const ListEntry &entry, const std::string &url, const std::string &host, bool isAddress);

}  // namespace netsift::ctl

#endif
