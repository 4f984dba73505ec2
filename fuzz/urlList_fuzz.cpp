/* A list file: whatever is in it, as many entries are read as were counted, and looking up stays inside them. */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "policy/urlList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static uint8_t nothing;
  FILE *file = fmemopen(size == 0 ? &nothing : const_cast<uint8_t *>(data), size == 0 ? 1 : size, "r");
  if (file == nullptr) return 0;
  const int lines = numLines(file), wildcards = numWildCardLines(file);
  if (lines < 0 || wildcards < 0 || wildcards > lines) std::abort();
  char host[] = " www.example.org ";
  for (int i = 0; i < lines; i++) {
    char *line = readURL(file);
    char *hostCopy = strdup(host);
    isDomainMatching(hostCopy, line, i & 1);
    std::free(hostCopy);
    std::free(line);
  }
  fclose(file);
  return 0;
}
