/* Text without an opinion: in-place trimming, and owners of malloc'ed text for the library's own code. */
#ifndef NETSIFT_UTIL_TEXT_H
#define NETSIFT_UTIL_TEXT_H

#include "util/api.h"

NETSIFT_BEGIN

/* Cuts leading and trailing white space (as isspace has it) in place, the rest shifted to the start. Returns the
   argument; null gives null. */
NETSIFT_API char *trim(char *text);

NETSIFT_END

#ifdef __cplusplus
#include <cstdlib>
#include <memory>

namespace netsift {

struct FreeDeleter {
  void operator()(void *memory) const { std::free(memory); }
};

/* A malloc allocation that is released on every way out. */
using Text = std::unique_ptr<char, FreeDeleter>;

}  // namespace netsift
#endif

#endif
