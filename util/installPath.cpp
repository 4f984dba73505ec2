#include "util/installPath.h"

#include <cstring>

char *installroot;

namespace netsift {

Text installPath(std::initializer_list<const char *> pieces) {
  const char *root = installroot == nullptr ? "" : installroot;
  size_t size = std::strlen(root) + 1;
  for (const char *piece : pieces) size += piece == nullptr ? 0 : std::strlen(piece);

  Text path(static_cast<char *>(std::malloc(size)));
  if (!path) return path;
  char *end = stpcpy(path.get(), root);
  for (const char *piece : pieces) {
    if (piece != nullptr) end = stpcpy(end, piece);
  }
  return path;
}

}  // namespace netsift
