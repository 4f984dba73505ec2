#include "content/namedReferences.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace netsift {
namespace {

constexpr std::string_view table =
#include "content/namedReferences.inc"
    ;

constexpr size_t shortestBare = 2, longestBare = 6; /* names that count without ";" */

constexpr size_t entryCount = static_cast<size_t>(std::count(table.begin(), table.end(), ' '));

struct Entry {
  uint16_t start; /* in the table */
  uint8_t nameLength, length;

  std::string_view name() const { return table.substr(start, nameLength); }
};

constexpr auto entries = [] {
  std::array<Entry, entryCount> all{};
  size_t count = 0, start = 0, divider = 0;
  for (size_t i = 0; i < table.size(); i++) {
    if (table[i] == '=' || table[i] == ':') divider = i;
    if (table[i] != ' ') continue;
    all[count++] = {static_cast<uint16_t>(start), static_cast<uint8_t>(divider - start),
                    static_cast<uint8_t>(i - start)};
    start = i + 1;
  }
  return all;
}();

/* Where the names begin that start with a letter, and behind the last. */
constexpr auto firstEntries = [] {
  std::array<uint16_t, 129> firsts{};
  for (const Entry &entry : entries) firsts[static_cast<size_t>(table[entry.start]) + 1]++;
  for (size_t i = 1; i < firsts.size(); i++) firsts[i] = static_cast<uint16_t>(firsts[i] + firsts[i - 1]);
  return firsts;
}();

NamedReference find(std::string_view name, bool mustBeBare) {
  NamedReference reference;
  if (name.empty() || static_cast<signed char>(name[0]) < 0) return reference;
  const auto letter = static_cast<size_t>(name[0]);
  const auto last = entries.begin() + firstEntries[letter + 1];
  const auto before = [](const Entry &entry, std::string_view sought) { return entry.name() < sought; };
  const auto found = std::lower_bound(entries.begin() + firstEntries[letter], last, name, before);
  if (found == last || found->name() != name) return reference;
  const std::string_view entry = table.substr(found->start, found->length);
  if (mustBeBare && entry[name.size()] != ':') return reference;
  reference.length = name.size();
  const char *end = entry.data() + entry.size();
  const auto first = std::from_chars(entry.data() + name.size() + 1, end, reference.codePoints[0], 16);
  if (first.ptr != end) std::from_chars(first.ptr + 1, end, reference.codePoints[1], 16);
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
