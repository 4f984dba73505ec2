/* The files of a list of URLs and domains, all in the configuration folder. */
#ifndef NETSIFT_HOST_LISTFILES_H
#define NETSIFT_HOST_LISTFILES_H

#include <string>
#include <string_view>
#include <vector>

namespace netsift::host {

/* After a list's name: the base name of what was reported for it. */
constexpr std::string_view reportedSuffix = ".reported";

struct ListFiles {
  std::string url;      /* what is loaded: made anew of the next three, or taken as it stands */
  std::string original; /* the administrator's URLs */
  std::string phrase;   /* phrases, whose single words become URL patterns */
  std::string reported; /* URLs that netsiftd added; most lists have none */
  std::string domain;
};

ListFiles listFiles(std::string_view name);

/* "whitelist", "adserver", "popup" and the categories of URLs of the configuration just read, each once. */
std::vector<std::string> loadedLists();

/* Whether what the list names is refused; the others exempt from something. */
bool isBlocking(std::string_view name);

/* Whether both files that a list's .url file is made of stand, and whether it can be made of them: both can be read and
   written, as the library opens them, and so can the folder and what stands in the .url file's place. */
bool hasSources(const ListFiles &files);
bool canBeMade(const ListFiles &files);

}  // namespace netsift::host

#endif
