/* The script that is inserted into pages: the host's part of the library's interface. */
#ifndef NETSIFT_HOST_POPUPSCRIPT_H
#define NETSIFT_HOST_POPUPSCRIPT_H

#include <cstddef>
#include <string>

namespace netsift::host {

constexpr size_t largestPopupScript = 65536;

/* Reads the script into `popupblocker` and `popuplen`. Returns what is wrong, "" when it is loaded. */
std::string loadPopupScript(const std::string &path);

}  // namespace netsift::host

#endif
