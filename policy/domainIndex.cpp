#include "policy/domainIndex.h"

#include "policy/domainMatch.h"

namespace netsift {

namespace {

using std::string_view;

/* White in no locale. */
bool isVisible(char c) { return c > ' ' && c < '\x7f'; }

/* Whether the entry matches its equals and what has a dot beside it, and nothing else. */
bool isRegular(string_view entry) {
  return isVisible(entry.front()) && isVisible(entry.back()) && entry.size() <= longestWholeDomain &&
         entry.find('*') == string_view::npos;
}

struct Domain {
  string_view text;
  uint64_t hash;
};

/* The texts by which a regular entry can match a host: at most one of each length, and the host whole. */
struct Domains {
  Domain all[longestWholeDomain + 1];
  size_t count = 0;

  void add(const Slots &slots, string_view text) {
    if (text.empty() || text.size() > longestWholeDomain) return;
    const uint64_t hash = hashOf(text);
    fetchSlot(slots, hash);
    all[count++] = {text, hash};
  }
};

Slot *slotOf(const Slots &slots, char **entries, const Domain &domain) {
  return findSlot(slots, domain.hash, [&](uint32_t number) { return domain.text == entries[number]; });
}

}  // namespace

size_t domainIndexBytes(size_t count) { return (slotsFor(count) + 1) * sizeof(Slot) + (count + 1) * sizeof(uint32_t); }

DomainIndex makeDomainIndex(Block &block, char **entries, size_t count) {
  size_t regular = 0;
  for (size_t i = 0; i < count; i++) regular += *entries[i] != '\0' && isRegular(entries[i]) ? 1 : 0;

  DomainIndex index{{nullptr, slotsFor(regular)}, nullptr, 0};
  index.slots.slots = takeItems<Slot>(block, index.slots.count);
  index.odd = takeItems<uint32_t>(block, count - regular);
  if (index.slots.slots == nullptr || index.odd == nullptr) return {};
  for (size_t i = 0; i < count; i++) {
    const string_view entry = entries[i];
    if (entry.find_first_not_of(" \t\n\v\f\r") == string_view::npos) continue; /* blank: never matches */
    const auto number = static_cast<uint32_t>(i);
    if (!isRegular(entry)) {
      index.odd[index.oddCount++] = number;
    } else if (Slot *slot = slotOf(index.slots, entries, {entry, hashOf(entry)}); slot->numberPlusOne == 0) {
      fillSlot(slot, hashOf(entry), number);
    }
  }
  return index;
}

bool matchesSomeDomain(const DomainIndex &index, char **entries, string_view host, bool isIP) {
  Domains domains;
  domains.add(index.slots, host);
  for (size_t dot = host.find('.'); dot != string_view::npos; dot = host.find('.', dot + 1)) {
    domains.add(index.slots, isIP ? host.substr(0, dot) : host.substr(dot + 1));
  }
  size_t first = SIZE_MAX; /* of the regular entries that match: the walk goes no further */
  for (size_t i = 0; i < domains.count; i++) {
    const size_t found = slotOf(index.slots, entries, domains.all[i])->numberPlusOne;
    if (found != 0 && found - 1 < first && matchesDomain(host, entries[found - 1], isIP)) first = found - 1;
  }
  for (size_t i = 0; i < index.oddCount && index.odd[i] < first; i++) {
    char *entry = entries[index.odd[i]];
    if (!isBlank(entry) && matchesDomain(host, entry, isIP)) return true;
  }
  return first != SIZE_MAX;
}

}  // namespace netsift
