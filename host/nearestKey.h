/* The key that somebody probably meant. */
#ifndef NETSIFT_HOST_NEARESTKEY_H
#define NETSIFT_HOST_NEARESTKEY_H

#include <string>
#include <string_view>

namespace netsift::host {

/* The known full key or section nearest to an unknown full key, "" when none is near: the same key in another section
   first, else the fewest characters to insert, remove or replace, at most a third of the key's and one. A key of which
   only the beginning was given counts as one character away. */
std::string nearestKey(std::string_view unknown);

}  // namespace netsift::host

#endif
