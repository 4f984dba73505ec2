#include "util/symbolStore.h"

#include <cstdint>
#include <cstring>

#include "util/pointerMap.h"

namespace netsift {

namespace {

constexpr size_t word = alignof(Symbol);

/* Filled while lists are loaded, only read while connections are served. */
PointerMap<SymbolStore> symbolStores;

Symbol *symbolAt(const Block &block, uint32_t number) {
  return reinterpret_cast<Symbol *>(block.bytes + number * word);
}

Slot *slotOf(const Block &block, const Slots &slots, const char *name) {
  return findSlot(slots, hashOf(name),
                  [&](uint32_t number) { return std::strcmp(symbolAt(block, number)->name, name) == 0; });
}

}  // namespace

void reserveSymbols(SymbolTable *table, size_t count, size_t nameBytes) {
  constexpr size_t each = sizeof(Symbol) + sizeof "" + sizeof "" + word; /* the ends of name and value */
  SymbolStore store{};
  if (!newBlock(store.block, count * each + nameBytes + (slotsFor(count) + 1) * sizeof(Slot))) return;
  if (store.block.size / word >= UINT32_MAX || symbolStores.insert(table, store) == nullptr) freeBlock(store.block);
}

bool indexSymbols(SymbolTable *table) {
  SymbolStore *store = storeOf(table);
  if (store == nullptr) return true;
  Slots slots{nullptr, slotsFor(static_cast<size_t>(table->symbolCount))};
  slots.slots = takeItems<Slot>(store->block, slots.count);
  for (Symbol *symbol = table->symbols; symbol != nullptr; symbol = symbol->next) {
    /* One that lies elsewhere would be among those of the block in its chain, not before them. */
    if (slots.slots == nullptr || !isInBlock(store->block, symbol)) return sealBlock(store->block);
    Slot *slot = slotOf(store->block, slots, symbol->name);
    if (slot->numberPlusOne != 0) continue; /* by a newer symbol */
    const auto offset = static_cast<size_t>(reinterpret_cast<char *>(symbol) - store->block.bytes);
    fillSlot(slot, hashOf(symbol->name), static_cast<uint32_t>(offset / word));
  }
  store->slots = slots;
  return sealBlock(store->block);
}

SymbolStore *storeOf(const SymbolTable *table) { return symbolStores.find(table); }

Symbol *indexedSymbol(const SymbolStore &store, const char *name) {
  const Slot *slot = slotOf(store.block, store.slots, name);
  return slot->numberPlusOne == 0 ? nullptr : symbolAt(store.block, slot->numberPlusOne - 1);
}

void freeStoreOf(const SymbolTable *table) {
  SymbolStore *store = storeOf(table);
  if (store == nullptr) return;
  freeBlock(store->block);
  symbolStores.erase(table);
}

}  // namespace netsift
