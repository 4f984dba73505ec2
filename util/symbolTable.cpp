#include "util/symbolTable.h"

#include <cstdlib>
#include <cstring>

#include "util/symbolStore.h"

namespace {

using netsift::storeOf;
using netsift::SymbolStore;

/* The low 8 bits of the characters' sum: the same whether a character counts as signed or not. */
uint8_t bucketOf(const char *name) {
  uint8_t sum = 0;
  for (; *name != '\0'; name++) sum = static_cast<uint8_t>(sum + static_cast<unsigned char>(*name));
  return sum;
}

/* A symbol with room for its name and a copy of the value, all in the table's block while that has room. */
Symbol *newSymbol(const SymbolTable *table, size_t nameSize, const char *value) {
  const size_t size = sizeof(Symbol) + nameSize, valueSize = std::strlen(value) + 1;
  SymbolStore *store = storeOf(table);
  char *memory = store == nullptr ? nullptr : netsift::takeBytes(store->block, size + valueSize, alignof(Symbol));
  char *ownValue = memory == nullptr ? static_cast<char *>(std::malloc(valueSize)) : memory + size;
  if (memory == nullptr) memory = static_cast<char *>(std::malloc(size));
  if (memory == nullptr || ownValue == nullptr) {
    std::free(memory);
    std::free(ownValue);
    return nullptr;
  }
  std::memcpy(ownValue, value, valueSize);
  auto *symbol = reinterpret_cast<Symbol *>(memory);
  *symbol = Symbol{};
  symbol->value = ownValue;
  return symbol;
}

void linkFirst(SymbolTable *table, Symbol *symbol) {
  symbol->next = table->symbols;
  if (symbol->next != nullptr) symbol->next->previous = symbol;
  table->symbols = symbol;

  Symbol *&chain = table->buckets[symbol->bucket];
  symbol->chainNext = chain;
  if (symbol->chainNext != nullptr) symbol->chainNext->chainPrevious = symbol;
  chain = symbol;

  table->symbolCount++;
}

}  // namespace

SymbolTable *sym_create_table_(const char *, int) {
  return static_cast<SymbolTable *>(std::calloc(1, sizeof(SymbolTable)));
}

Symbol *sym_create_symbol_(SymbolTable *table, const char *name, const char *value, const char *, int) {
  const size_t nameSize = std::strlen(name) + 1;
  Symbol *symbol = newSymbol(table, nameSize, value);
  if (symbol == nullptr) return nullptr;
  symbol->name = reinterpret_cast<char *>(symbol + 1);
  std::memcpy(symbol->name, name, nameSize);
  symbol->bucket = bucketOf(name);
  linkFirst(table, symbol);
  return symbol;
}

Symbol *sym_lookup_symbol(SymbolTable *table, const char *name) {
  const SymbolStore *store = storeOf(table);
  const bool isIndexed = store != nullptr && store->slots.count != 0;
  Symbol *symbol = table->buckets[bucketOf(name)];
  for (; symbol != nullptr; symbol = symbol->chainNext) {
    if (isIndexed && netsift::isInBlock(store->block, symbol)) return netsift::indexedSymbol(*store, name);
    if (std::strcmp(symbol->name, name) == 0) return symbol;
  }
  return nullptr;
}

void sym_delete_table(SymbolTable *table, const char *, int) {
  if (table == nullptr) return;
  const SymbolStore *store = storeOf(table);
  for (Symbol *symbol = table->symbols; symbol != nullptr;) {
    Symbol *next = symbol->next;
    if (store == nullptr || !netsift::isInBlock(store->block, symbol)) {
      std::free(symbol->value);
      std::free(symbol);
    }
    symbol = next;
  }
  netsift::freeStoreOf(table);
  std::free(table);
}
