#include "content/namedReferences.h"

#include <algorithm>
#include <array>

namespace netsift {
namespace {

constexpr std::string_view table =
#include "content/namedReferences.inc"
    ;

constexpr size_t shortestBare = 2, longestBare = 6; /* names that count without ";" */

constexpr size_t entryCount = static_cast<size_t>(std::count(table.begin(), table.end(), ' '));

struct Entry {
  uint16_t start; /* in the table */
  uint8_t nameLength;
  bool isBare; /* counts without ";" */
  uint32_t codePoints[2];

  constexpr std::string_view name() const { return table.substr(start, nameLength); }
};

constexpr uint32_t hexDigit(char c) { return static_cast<uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10); }

constexpr auto entries = [] {
  std::array<Entry, entryCount> all{};
  size_t start = 0;
  for (Entry &entry : all) {
    size_t i = start;
    while (table[i] != '=' && table[i] != ':') i++;
    entry.start = static_cast<uint16_t>(start);
    entry.nameLength = static_cast<uint8_t>(i - start);
    entry.isBare = table[i] == ':';
    for (size_t number = 0; table[i++] != ' '; number++) {
      for (; table[i] != ' ' && table[i] != ','; i++)
        entry.codePoints[number] = entry.codePoints[number] * 16 + hexDigit(table[i]);
    }
    start = i;
  }
  return all;
}();

constexpr size_t slotOf(std::string_view name) {
  uint32_t mixed = 0;
  for (const char c : name) mixed = (mixed ^ static_cast<uint8_t>(c)) * 0x9E3779B1;
  return mixed >> 20;
}

/* Entries' numbers from 1, each in its slot or the next that is free. */
constexpr auto slots = [] {
  std::array<uint16_t, 4096> all{};
  for (size_t i = 0; i < entries.size(); i++) {
    size_t slot = slotOf(entries[i].name());
    while (all[slot] != 0) slot = (slot + 1) % all.size();
    all[slot] = static_cast<uint16_t>(i + 1);
  }
  return all;
}();

NamedReference find(std::string_view name, bool mustBeBare) {
  NamedReference reference;
  for (size_t slot = slotOf(name); slots[slot] != 0; slot = (slot + 1) % slots.size()) {
    const Entry &entry = entries[slots[slot] - 1U];
    if (entry.name() != name) continue;
    if (mustBeBare && !entry.isBare) return reference;
    reference.length = name.size();
    std::copy_n(entry.codePoints, 2, reference.codePoints);
    return reference;
  }
  return reference;
}

}  // namespace

NamedReference findReference(std::string_view name, bool closed) {
  if (closed && name.size() <= longestReferenceName) {
    const NamedReference whole = find(name, false);
    if (whole.length > 0) return whole;
  }
  for (size_t length = std::min(name.size(), longestBare); length >= shortestBare; length--) {
    const NamedReference start = find(name.substr(0, length), true);
    if (start.length > 0) return start;
  }
  return {};
}

}  // namespace netsift
