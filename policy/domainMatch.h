/* The rule by which one domain entry matches a host. */
#ifndef NETSIFT_POLICY_DOMAINMATCH_H
#define NETSIFT_POLICY_DOMAINMATCH_H

#include <cstddef>
#include <string_view>

namespace netsift {

/* `text` trimmed in place. A text that needs no trimming is not written: entries lie on pages shared with others. */
std::string_view trimmed(char *text, size_t length);

/* As trim sees it. */
bool isWhite(char c);

/* An entry of white space alone, which would match every host that ends in a dot; look-ups pass over it. */
bool isBlank(const char *entry);

/* isDomainMatching of a host that is trimmed. */
bool matchesDomain(std::string_view host, char *entry, bool isIP);

/* The longest literal run of a pattern that isMatching does not cut, and the longest domain that is one with its dot. */
constexpr size_t longestWholeRun = 111, longestWholeDomain = longestWholeRun - 1;

}  // namespace netsift

#endif
