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

struct DomainIndex {
  Slots slots;   /* of the first entry of each text; without any, there is no index */
  uint32_t *odd; /* the entries that are walked */
  size_t oddCount;
};

/* What an index of `count` entries takes of a block at most. */
size_t domainIndexBytes(size_t count);

/* An index in the block; none when that has no room. */
DomainIndex makeDomainIndex(Block &block, char **entries, size_t count);

/* What walking all entries would answer, and trimming no other of them. The host is trimmed. */
bool matchesSomeDomain(const DomainIndex &index, char **entries, std::string_view host, bool isIP);

}  // namespace netsift

#endif
