#include "policy/wildcardIndex.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>

#include "content/wildcardMatch.h"
#include "policy/domainMatch.h"

namespace netsift {

namespace {

using std::string_view;

constexpr size_t gramSizes[] = {8, 6, 4, 3, 2, 1}; /* or 0 */
constexpr unsigned leastBucketBits = 6, mostBits = 31, countBits = 16;

unsigned bucketBitsFor(size_t count) {
  return std::clamp(static_cast<unsigned>(std::bit_width(count)) + 1, leastBucketBits, mostBits);
}

/* So many more bits than entries that few are set, and yet a filter for 10,000 entries that stays near the processor. */
unsigned filterBitsFor(size_t count) { return std::min(bucketBitsFor(count) + 4, mostBits); }

size_t filterWords(unsigned bits) { return size_t{1} << (bits - std::countr_zero(64U)); }

/* One of 2^bits buckets, those of fewer bits being unions of those of more. */
size_t bucketOf(uint64_t gram, unsigned bits) {
  return static_cast<size_t>((gram ^ gram >> 32) * 0x9E3779B97F4A7C15U >> (64 - bits));
}

uint64_t gramAt(const char *text, size_t size) {
  uint64_t gram = 0;
  std::memcpy(&gram, text, size);
  return gram;
}

/* Calls for each literal run of a pattern, as much of it as counts. */
template <class Call>
void eachRun(string_view pattern, Call call) {
  for (;;) {
    const size_t end = std::min(pattern.find('*'), pattern.size());
    call(pattern.substr(0, std::min(end, longestWholeRun)));
    if (end == pattern.size()) return;
    pattern.remove_prefix(end + 1);
  }
}

size_t gramSizeOf(string_view pattern) {
  size_t longest = 0;
  eachRun(pattern, [&](string_view run) { longest = std::max(longest, run.size()); });
  const size_t *size = std::ranges::find_if(gramSizes, [&](size_t most) { return most <= longest; });
  return size == std::end(gramSizes) ? 0 : *size;
}

/* Calls for each gram of the size that the pattern is found by. */
template <class Call>
void eachGram(string_view pattern, size_t size, Call call) {
  eachRun(pattern, [&](string_view run) {
    for (size_t at = 0; at + size <= run.size(); at++) call(gramAt(run.data() + at, size));
  });
}

/* How many entries have a gram, roughly: grams that share a bucket are counted together. */
struct Counts {
  uint32_t of[size_t{1} << countBits];
};

uint64_t rarestGram(string_view pattern, size_t size, const Counts &counts) {
  uint64_t rarest = 0;
  uint32_t fewest = UINT32_MAX;
  eachGram(pattern, size, [&](uint64_t gram) {
    const uint32_t count = counts.of[bucketOf(gram, countBits)];
    if (count >= fewest) return;
    rarest = gram;
    fewest = count;
  });
  return rarest;
}

/* Sorts the grams, one an entry, by their buckets. */
void fillBuckets(WildcardIndex &index, const uint64_t *grams, size_t count) {
  const size_t buckets = size_t{1} << index.bucketBits;
  for (size_t i = 0; i < count; i++) index.buckets[bucketOf(grams[i], index.bucketBits)]++;
  uint32_t end = 0;
  for (size_t bucket = 0; bucket <= buckets; bucket++) index.buckets[bucket] = end += index.buckets[bucket];
  for (size_t i = count; i-- > 0;) {
    index.grams[--index.buckets[bucketOf(grams[i], index.bucketBits)]] = {grams[i], static_cast<uint32_t>(i)};
  }
}

bool mayBeIn(const WildcardIndex &index, uint64_t gram) {
  const size_t bit = bucketOf(gram, index.filterBits);
  return (index.filter[bit / 64] >> bit % 64 & 1) != 0;
}

/* An entry found by the bytes at an offset matches; later occurrences of the same bytes find nothing new. */
bool matchesAt(const WildcardIndex &index, char **entries, string_view text, size_t at, size_t size) {
  const uint64_t gram = gramAt(text.data() + at, size);
  const size_t bucket = bucketOf(gram, index.bucketBits);
  for (uint32_t i = index.buckets[bucket]; i < index.buckets[bucket + 1]; i++) {
    if (index.grams[i].bytes != gram) continue;
    if (text.find(text.substr(at, size)) < at) return false;
    if (matchesPattern(text, entries[index.grams[i].number])) return true;
  }
  return false;
}

template <size_t size>
bool matchesAnywhere(const WildcardIndex &index, char **entries, string_view text) {
  if ((index.gramSizes >> size & 1) == 0 || text.size() < size) return false;
  const size_t last = size == 0 ? 0 : text.size() - size;
  for (size_t at = 0; at <= last; at++) {
    if (mayBeIn(index, gramAt(text.data() + at, size)) && matchesAt(index, entries, text, at, size)) return true;
  }
  return false;
}

}  // namespace

size_t wildcardIndexBytes(size_t count) {
  return ((size_t{1} << bucketBitsFor(count)) + 2) * sizeof(uint32_t) + (count + 1) * sizeof(Gram) +
         (filterWords(filterBitsFor(count)) + 1) * sizeof(uint64_t);
}

WildcardIndex makeWildcardIndex(Block &block, char **entries, size_t count) {
  const std::unique_ptr<Counts> counts(new (std::nothrow) Counts{});
  const std::unique_ptr<uint64_t[]> grams(new (std::nothrow) uint64_t[count]);
  WildcardIndex index{nullptr, nullptr, nullptr, bucketBitsFor(count), filterBitsFor(count), 0};
  index.buckets = takeItems<uint32_t>(block, (size_t{1} << index.bucketBits) + 1);
  index.grams = takeItems<Gram>(block, count);
  index.filter = takeItems<uint64_t>(block, filterWords(index.filterBits));
  if (!counts || !grams || index.buckets == nullptr || index.grams == nullptr || index.filter == nullptr) return {};

  for (size_t i = 0; i < count; i++) {
    const size_t size = gramSizeOf(entries[i]);
    index.gramSizes |= 1U << size;
    eachGram(entries[i], size, [&](uint64_t gram) { counts->of[bucketOf(gram, countBits)]++; });
  }
  for (size_t i = 0; i < count; i++) {
    grams[i] = rarestGram(entries[i], gramSizeOf(entries[i]), *counts);
    const size_t bit = bucketOf(grams[i], index.filterBits);
    index.filter[bit / 64] |= uint64_t{1} << bit % 64;
  }
  fillBuckets(index, grams.get(), count);
  return index;
}

bool matchesSomeWildcard(const WildcardIndex &index, char **entries, string_view text) {
  return matchesAnywhere<8>(index, entries, text) || matchesAnywhere<6>(index, entries, text) ||
         matchesAnywhere<4>(index, entries, text) || matchesAnywhere<3>(index, entries, text) ||
         matchesAnywhere<2>(index, entries, text) || matchesAnywhere<1>(index, entries, text) ||
         matchesAnywhere<0>(index, entries, text);
}

}  // namespace netsift
