/* Owners of malloc'ed text, for the library's own code. */
#ifndef NETSIFT_UTIL_OWNEDTEXT_H
#define NETSIFT_UTIL_OWNEDTEXT_H

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
