/* A hash table of numbers in memory of the caller's: who has the things that the numbers stand for compares them. At
   most half is in use, so that what is not there costs one line of cache as a rule. */
#ifndef NETSIFT_UTIL_SLOTS_H
#define NETSIFT_UTIL_SLOTS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace netsift {

/* Empty when all zero: `numberPlusOne` of 0. The tag is part of the hash, and spares most comparisons. */
struct Slot {
  uint32_t tag, numberPlusOne;
};

struct Slots {
  Slot *slots;
  size_t count; /* 0: there is no table */
};

constexpr size_t slotsFor(size_t numbers) { return 2 * numbers + 1; }

inline uint64_t hashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }

inline size_t firstPlace(const Slots &table, uint64_t hash) {
  return static_cast<size_t>((hash >> 32) * table.count >> 32);
}

/* To be called some time before findSlot: large tables are far from the processor. */
inline void fetchSlot(const Slots &table, uint64_t hash) { __builtin_prefetch(table.slots + firstPlace(table, hash)); }

/* The slot whose number `isIt` knows as that of the text with this hash, else the empty one where it would go. */
template <class IsIt>
Slot *findSlot(const Slots &table, uint64_t hash, IsIt isIt) {
  const auto tag = static_cast<uint32_t>(hash);
  for (size_t at = firstPlace(table, hash);; at = at + 1 == table.count ? 0 : at + 1) {
    Slot &slot = table.slots[at];
    if (slot.numberPlusOne == 0 || (slot.tag == tag && isIt(slot.numberPlusOne - 1))) return &slot;
  }
}

inline void fillSlot(Slot *slot, uint64_t hash, uint32_t number) { *slot = {static_cast<uint32_t>(hash), number + 1}; }

}  // namespace netsift

#endif
