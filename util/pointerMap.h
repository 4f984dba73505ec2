/* What is known about few things at fixed addresses, found by address: an array in the addresses' order. Memory that is
   short is a failure here, not an exception; nothing is released when the process ends. */
#ifndef NETSIFT_UTIL_POINTERMAP_H
#define NETSIFT_UTIL_POINTERMAP_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace netsift {

template <class Value>
struct PointerMap {
  static_assert(std::is_trivially_copyable_v<Value>);

  struct Item {
    uintptr_t key;
    Value value;
  };
  Item *items;
  size_t count;

  /* The value, until the map is changed; null when there is none. */
  Value *find(const void *key) const {
    const size_t at = placeOf(key);
    return at < count && items[at].key == reinterpret_cast<uintptr_t>(key) ? &items[at].value : nullptr;
  }

  /* Adds a key that is not there yet; null when memory is short. */
  Value *insert(const void *key, const Value &value) {
    auto *grown = static_cast<Item *>(std::realloc(items, (count + 1) * sizeof(Item)));
    if (grown == nullptr) return nullptr;
    items = grown;
    const size_t at = placeOf(key);
    std::memmove(items + at + 1, items + at, (count - at) * sizeof(Item));
    items[at] = {reinterpret_cast<uintptr_t>(key), value};
    count++;
    return &items[at].value;
  }

  void erase(const void *key) {
    const size_t at = placeOf(key);
    std::memmove(items + at, items + at + 1, (count - at - 1) * sizeof(Item));
    count--;
  }

 private:
  size_t placeOf(const void *key) const {
    size_t low = 0, high = count;
    while (low < high) {
      const size_t middle = low + (high - low) / 2;
      if (items[middle].key < reinterpret_cast<uintptr_t>(key)) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }
};

}  // namespace netsift

#endif
