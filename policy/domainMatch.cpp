#include "policy/domainMatch.h"

#include <cctype>
#include <cstring>

#include "content/wildcardMatch.h"
#include "util/text.h"

namespace netsift {

namespace {

constexpr size_t patternSize = 1024; /* an entry and "*." or ".*" */
constexpr size_t longestEntry = patternSize - sizeof "*.";

}  // namespace

/* ASCII's visible bytes are white in no locale, and a walk over many entries asks twice of each. */
bool isWhite(char c) { return !(c > ' ' && c < '\x7f') && std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string_view trimmed(char *text, size_t length) {
  if (length == 0 || (!isWhite(text[0]) && !isWhite(text[length - 1]))) return {text, length};
  return trim(text);
}

bool isBlank(const char *entry) {
  while (isWhite(*entry)) entry++;
  return *entry == '\0';
}

bool matchesDomain(std::string_view host, char *entry, bool isIP) {
  const size_t storedLength = std::strlen(entry);
  const std::string_view domain = trimmed(entry, storedLength);
  if (host == domain) return true;
  if (storedLength > longestEntry) return false;

  char pattern[patternSize];
  if (isIP) {
    /* Behind blanks that were cut off, the ".*" lies beyond the pattern's end. */
    std::memcpy(pattern, domain.data(), domain.size() + 1);
    std::memcpy(pattern + storedLength, ".*", sizeof ".*");
  } else {
    /* Nearly every entry ends here, unless it has a "*" or is so long that its end does not count. */
    const bool countsWhole = domain.size() <= longestWholeDomain && domain.find('*') == std::string_view::npos;
    if (countsWhole && !host.ends_with(domain)) return false;
    pattern[0] = '*';
    pattern[1] = '.';
    std::memcpy(pattern + 2, domain.data(), domain.size() + 1);
  }
  return matchesPattern(host, pattern);
}

}  // namespace netsift
