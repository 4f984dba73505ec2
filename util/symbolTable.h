/* A string-keyed hash table of 256 buckets: what the URL lists are held in. */
#ifndef NETSIFT_UTIL_SYMBOLTABLE_H
#define NETSIFT_UTIL_SYMBOLTABLE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

typedef struct Symbol {
  struct Symbol *next, *previous, *chainNext, *chainPrevious;
  char *name, *value; /* name: same allocation as the symbol */
  void *userData;
  uint8_t bucket;
} Symbol;

typedef struct SymbolTable {
  Symbol *symbols;
  Symbol *buckets[256];
  int32_t symbolCount;
} SymbolTable;

NETSIFT_API SymbolTable *sym_create_table_(const char *trackFile, int trackLine);
NETSIFT_API Symbol *sym_create_symbol_(SymbolTable *table, const char *name, const char *value, const char *trackFile,
                                       int trackLine);
NETSIFT_API Symbol *sym_lookup_symbol(SymbolTable *table, const char *name);
NETSIFT_API void sym_delete_table(SymbolTable *table, const char *trackFile, int trackLine);

NETSIFT_END

#endif
