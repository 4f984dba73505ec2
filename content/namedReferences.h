/* HTML's named character references: internal to the library. */
#ifndef NETSIFT_CONTENT_NAMEDREFERENCES_H
#define NETSIFT_CONTENT_NAMEDREFERENCES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace netsift {

constexpr size_t longestReferenceName = 31;

struct NamedReference {
  size_t length = 0;            /* bytes of the name; 0: there is none */
  uint32_t codePoints[2] = {0}; /* the second may be 0 */
};

/* The character of a name, without its "&" and ";", in the table's capitals. `closed`: a ";" follows, and all of the
   name has to be known; else the longest start of it that counts without one. */
NamedReference findReference(std::string_view name, bool closed);

}  // namespace netsift

#endif
