/* URLs that connections' processes report for a blacklist, kept beside what the administrator wrote. */
#ifndef NETSIFT_HOST_REPORTEDURLS_H
#define NETSIFT_HOST_REPORTEDURLS_H

#include <cstddef>
#include <string>

namespace netsift::host {

constexpr size_t mostReportedBytes = size_t{1} << 20; /* of a list's file; some 20,000 URLs */

/* Has the library add the URL to the blacklist that shares the phrase category's base name, in memory and in the file
   NAME.reported.url.orig, which is loaded with the list; NAME.url.orig is left alone. Returns what is wrong, "" when
   the URL was handed on. A "*" is refused: a list takes it for a pattern, and there is no way to write it otherwise. */
std::string addReportedUrl(int category, const std::string &url);

}  // namespace netsift::host

#endif
