/* Domain entries found by the host's own text: by the host whole, and by what follows each of its dots (what precedes
   them, for an address). An entry that is found so is confirmed by the comparison that the walk makes. Entries that such
   a look-up cannot tell of (blanks around them, a "*", lengths that count in part) are walked, in the list's order. */
#ifndef NETSIFT_POLICY_DOMAININDEX_H
#define NETSIFT_POLICY_DOMAININDEX_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/block.h"
#include "util/slots.h"

namespace netsift {

/* An entry that is walked. */
struct OddEntry {
  uint32_t number;
  char *original; /* the text it was loaded with, when look-ups may trim it; else null */
};

struct DomainIndex {
  Slots slots; /* of the first entry of each text; without any, there is no index */
  OddEntry *odd;
  size_t oddCount;
};

/* What an index of `count` entries of `bytes` bytes in all takes of a block at most. */
size_t domainIndexBytes(size_t count, size_t bytes);

/* An index in the block; none when that has no room. */
DomainIndex makeDomainIndex(Block &block, char **entries, size_t count);

/* What walking all entries would answer, and trimming no other of them. The host is trimmed. */
bool matchesSomeDomain(const DomainIndex &index, char **entries, std::string_view host, bool isIP);

/* Undoes what look-ups trimmed. */
void restoreDomains(const DomainIndex &index, char **entries);

}  // namespace netsift

#endif
