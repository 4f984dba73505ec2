#include "policy/popupIndex.h"

#include <algorithm>
#include <cstring>
#include <string_view>

int getPopUpIndex(char *body, int length) {
  if (length <= 0) return -1;
  const size_t size = static_cast<size_t>(length);
  const std::string_view text(body, strnlen(body, size - 1));
  const size_t lower = text.find("<html");
  const size_t upper = text.substr(0, lower).find("<HTML");
  const size_t tag = std::min(lower, upper);
  if (tag == std::string_view::npos) return -1;
  const size_t end = std::string_view(body, size).find('>', tag);
  return end == std::string_view::npos ? -1 : static_cast<int>(end + 1);
}
