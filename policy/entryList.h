/* The arrays of a loaded list's wildcards and domains: null-terminated, for anyone to walk, each in one block that
   forking does not copy, and with an index that gives the walk's answer at a cost that hardly grows with the list. An
   array that somebody put together by hand has no index and is walked. A loaded one is not changed by hand: an entry
   that is put into it is not found. */
#ifndef NETSIFT_POLICY_ENTRYLIST_H
#define NETSIFT_POLICY_ENTRYLIST_H

#include <cstddef>

#include "policy/domainIndex.h"
#include "policy/wildcardIndex.h"
#include "util/block.h"
#include "util/ownedText.h"

namespace netsift {

/* An array with room for `count` entries, of `bytes` bytes in all as a rule; null when memory is short. It is empty, and
   good for freeEntries from here on. */
char **newWildcards(size_t count, size_t bytes);
char **newDomains(size_t count, size_t bytes);

/* Adds an entry at the end; it is dropped when there is no room for it. */
void addEntry(char **entries, Text entry);

/* To be called when the array is filled: make the index and seal the block. False when memory is short; the array is
   then good for freeEntries alone. */
bool indexWildcards(char **entries);
bool indexDomains(char **entries);

/* Releases a loaded array, or one put together in the heap; null is allowed. */
void freeEntries(char **entries);

/* The index of a loaded array; null where the array is to be walked. */
const WildcardIndex *wildcardIndexOf(char **entries);
const DomainIndex *domainIndexOf(char **entries);

}  // namespace netsift

#endif
