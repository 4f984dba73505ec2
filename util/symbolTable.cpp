#include "util/symbolTable.h"

#include <cstdlib>
#include <cstring>

namespace {

/* The low 8 bits of the characters' sum: the same whether a character counts as signed or not. */
uint8_t bucketOf(const char *name) {
  uint8_t sum = 0;
  for (; *name != '\0'; name++) sum = static_cast<uint8_t>(sum + static_cast<unsigned char>(*name));
  return sum;
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
  auto *symbol = static_cast<Symbol *>(std::malloc(sizeof(Symbol) + nameSize));
  char *ownValue = strdup(value);
  if (symbol == nullptr || ownValue == nullptr) {
    std::free(symbol);
    std::free(ownValue);
    return nullptr;
  }
  *symbol = Symbol{};
  symbol->name = reinterpret_cast<char *>(symbol + 1);
  std::memcpy(symbol->name, name, nameSize);
  symbol->value = ownValue;
  symbol->bucket = bucketOf(name);
  linkFirst(table, symbol);
  return symbol;
}

Symbol *sym_lookup_symbol(SymbolTable *table, const char *name) {
  Symbol *symbol = table->buckets[bucketOf(name)];
  while (symbol != nullptr && std::strcmp(symbol->name, name) != 0) symbol = symbol->chainNext;
  return symbol;
}

void sym_delete_table(SymbolTable *table, const char *, int) {
  if (table == nullptr) return;
  for (Symbol *symbol = table->symbols; symbol != nullptr;) {
    Symbol *next = symbol->next;
    std::free(symbol->value);
    std::free(symbol);
    symbol = next;
  }
  std::free(table);
}
