/* A text and a pattern, parted by the first LF, each on the heap so that a byte beyond is seen. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "content/wildcard.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view whole(reinterpret_cast<const char *>(data), size);
  const size_t end = whole.find('\n');
  char *text = strndup(whole.data(), end == whole.npos ? size : end);
  char *pattern = end == whole.npos ? strdup("*a*") : strndup(whole.data() + end + 1, size - end - 1);
  const int matches = isMatching(text, pattern);
  if (matches != 0 && matches != 1) std::abort();
  if (isMatching(text, text) != 1 && std::strchr(text, '*') == nullptr && std::strlen(text) < 112) std::abort();
  contains(text, pattern);
  strsearch(text, pattern);
  const int offset = containsBeforeDelim(text, pattern, '/');
  if (offset >= 0 && beginsWith(text + offset, pattern) != 1) std::abort();
  beginsWithCI(text, pattern);
  std::free(text);
  std::free(pattern);
  return 0;
}
