/* Wildcard entries found by eight bytes in a row that each of them needs to stand in the URL: of all that it has, those
   that the fewest others have too. An entry without eight bytes in a row is found by six, or by four to one; one without
   any is asked always. What is found so is confirmed by the wildcard matcher. */
#ifndef NETSIFT_POLICY_WILDCARDINDEX_H
#define NETSIFT_POLICY_WILDCARDINDEX_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/block.h"

namespace netsift {

/* The bytes by which an entry is found, zeros behind them when they are fewer than eight. */
struct Gram {
  uint64_t bytes;
  uint32_t number;
};

struct WildcardIndex {
  uint32_t *buckets; /* where the grams of each bucket begin, and where the last ones end; null: there is no index */
  Gram *grams;
  uint64_t *filter; /* a bit for each of many finer buckets: nearly every place in a URL ends at a 0 there */
  unsigned bucketBits, filterBits, gramSizes; /* gramSizes: bit n when some gram has n bytes */
};

/* In longer texts, one that repeats itself would be confirmed over and over: they are walked. */
constexpr size_t longestIndexedText = 1024;

/* What an index of `count` entries takes of a block at most. */
size_t wildcardIndexBytes(size_t count);

/* An index in the block; none when that or the heap has no room. */
WildcardIndex makeWildcardIndex(Block &block, char **entries, size_t count);

/* What walking all entries would answer. */
bool matchesSomeWildcard(const WildcardIndex &index, char **entries, std::string_view text);

}  // namespace netsift

#endif
