#include "host/popupScript.h"

#include <algorithm>

#include "host/files.h"
#include "state/settings.h"

char popupblocker[netsift::host::largestPopupScript];
int32_t popuplen;

namespace netsift::host {

std::string loadPopupScript(const std::string &path) {
  std::string content, error;
  if (!readWholeFile(path, largestPopupScript, &content, &error)) return error;
  if (content.empty()) return "is empty; put the script in it, or switch popups.block off";
  std::ranges::copy(content, popupblocker);
  popuplen = static_cast<int32_t>(content.size());
  return "";
}

}  // namespace netsift::host
