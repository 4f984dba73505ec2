#include "policy/entryList.h"

#include <cstdlib>
#include <cstring>

#include "util/pointerMap.h"

namespace netsift {

namespace {

struct EntryList {
  Block block;
  size_t room, count;
  WildcardIndex wildcards; /* one of the two has an index once the list is loaded */
  DomainIndex domains;
};

/* By their arrays. Filled while lists are loaded, only read while connections are served. */
PointerMap<EntryList> entryLists;

char **newEntries(size_t count, size_t bytes, size_t indexBytes) {
  EntryList list{};
  list.room = count;
  if (!newBlock(list.block, (count + 1) * sizeof(char *) + count + bytes + indexBytes)) return nullptr;
  char **entries = takeItems<char *>(list.block, count + 1);
  if (entryLists.insert(entries, list) != nullptr) return entries;
  freeBlock(list.block);
  return nullptr;
}

}  // namespace

char **newWildcards(size_t count, size_t bytes) { return newEntries(count, bytes, wildcardIndexBytes(count)); }

char **newDomains(size_t count, size_t bytes) { return newEntries(count, bytes, domainIndexBytes(count)); }

void addEntry(char **entries, Text entry) {
  EntryList *list = entryLists.find(entries);
  if (list->count == list->room) return;
  const size_t size = std::strlen(entry.get()) + 1;
  char *copy = takeBytes(list->block, size, 1);
  /* A file that has grown while it is read can have more bytes than were counted: such an entry keeps its memory. */
  entries[list->count++] =
      copy != nullptr ? static_cast<char *>(std::memcpy(copy, entry.get(), size)) : entry.release();
}

bool indexWildcards(char **entries) {
  EntryList *list = entryLists.find(entries);
  list->wildcards = makeWildcardIndex(list->block, entries, list->count);
  return sealBlock(list->block);
}

bool indexDomains(char **entries) {
  EntryList *list = entryLists.find(entries);
  list->domains = makeDomainIndex(list->block, entries, list->count);
  return sealBlock(list->block);
}

void freeEntries(char **entries) {
  if (entries == nullptr) return;
  EntryList *list = entryLists.find(entries);
  for (char **entry = entries; *entry != nullptr; entry++) {
    if (list == nullptr || !isInBlock(list->block, *entry)) std::free(*entry);
  }
  if (list == nullptr) {
    std::free(entries);
    return;
  }
  freeBlock(list->block);
  entryLists.erase(entries);
}

const WildcardIndex *wildcardIndexOf(char **entries) {
  const EntryList *list = entryLists.find(entries);
  return list != nullptr && list->wildcards.buckets != nullptr ? &list->wildcards : nullptr;
}

const DomainIndex *domainIndexOf(char **entries) {
  const EntryList *list = entryLists.find(entries);
  return list != nullptr && list->domains.slots.count != 0 ? &list->domains : nullptr;
}

}  // namespace netsift
