/* Tables that are filled once with very many symbols: these lie in one block, which forking does not copy, and a name is
   found by one probe. All sym_... operations do with such a table what they do with any; symbols added later lie beside
   the block, at the heads of their chains, and are found there. */
#ifndef NETSIFT_UTIL_SYMBOLSTORE_H
#define NETSIFT_UTIL_SYMBOLSTORE_H

#include <cstddef>

#include "util/block.h"
#include "util/slots.h"
#include "util/symbolTable.h"

namespace netsift {

struct SymbolStore {
  Block block;
  Slots slots; /* of the newest symbol of each name; a symbol's number is its place in the block, in words */
};

/* Room in one block for the next `count` symbols of an empty table, whose names have `nameBytes` bytes in all and whose
   values are empty. What does not fit is allocated like any other symbol, and so are all when memory is short. */
void reserveSymbols(SymbolTable *table, size_t count, size_t nameBytes);

/* To be called when the table is filled: makes the index and seals the block. False when memory is short; the table is
   then good for sym_delete_table alone. Nothing is done for a table without a block. */
bool indexSymbols(SymbolTable *table);

/* For the table's own operations: null for a table like any other. */
SymbolStore *storeOf(const SymbolTable *table);
Symbol *indexedSymbol(const SymbolStore &store, const char *name); /* of a store with slots; null when it has none */
void freeStoreOf(const SymbolTable *table);

}  // namespace netsift

#endif
