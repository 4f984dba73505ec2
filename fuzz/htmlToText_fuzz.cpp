/* HTML to text: a page and the NUL behind it, on the heap so that a byte beyond is seen. */
#include <cstdlib>
#include <cstring>
#include <memory>

#include "content/htmlToText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const auto page = std::make_unique<char[]>(size + 1);
  if (size > 0) memcpy(page.get(), data, size);
  auto length = static_cast<int32_t>(size);
  ConvertHTMLToText(page.get(), &length);
  if (length < 0 || static_cast<size_t>(length) > size) abort();
  for (size_t i = static_cast<size_t>(length); i <= size; i++) {
    if (page[i] != '\0') abort();
  }
  return 0;
}
