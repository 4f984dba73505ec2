/* The wildcard matcher for texts whose length is known. */
#ifndef NETSIFT_CONTENT_WILDCARDMATCH_H
#define NETSIFT_CONTENT_WILDCARDMATCH_H

#include <string_view>

namespace netsift {

/* isMatching of a text whose length is known, for walks over many patterns. The text must not hold a NUL. */
bool matchesPattern(std::string_view text, const char *pattern);

}  // namespace netsift

#endif
