/* Rating labels: the text must be as before afterwards. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "content/ratings.h"
#include "state/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  icraenable = rsacenable = safesurfenable = 1;
  for (int32_t &limit : icra) limit = 10; /* so that the later vocabularies are reached */
  const auto text = std::make_unique<char[]>(size + 1);
  if (size > 0) memcpy(text.get(), data, size);
  checkPICSRating(text.get());
  if (size > 0 && memcmp(text.get(), data, size) != 0) abort();
  return 0;
}
