/* A string-keyed hash table of 256 buckets: what the URL lists are held in. Names compare exactly, whole and with case.
   Creation does not look for an existing name: a second symbol of a name hides the first. Single-threaded. */
#ifndef NETSIFT_UTIL_SYMBOLTABLE_H
#define NETSIFT_UTIL_SYMBOLTABLE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

typedef struct Symbol {
  struct Symbol *next, *previous;           /* in the table's list of all symbols */
  struct Symbol *chainNext, *chainPrevious; /* in the bucket's chain */
  char *name, *value;                       /* name: same allocation as the symbol; value: owned */
  void *userData;                           /* the user's; null at creation, never freed here */
  uint8_t bucket;                           /* the sum of the name's characters, modulo 256 */
} Symbol;

typedef struct SymbolTable {
  Symbol *symbols; /* newest first, as in each bucket */
  Symbol *buckets[256];
  int32_t symbolCount;
} SymbolTable;

/* A new empty table, to be deleted by sym_delete_table; null when memory is short. The two tracking arguments of these
   operations are for an allocator that records its callers; nothing is done with them (null and 0 will do). */
NETSIFT_API SymbolTable *sym_create_table_(const char *trackFile, int trackLine);

/* Adds a symbol with copies of name and value, both not null. Returns it (the table owns it), or null when memory is
   short, with the table unchanged. */
NETSIFT_API Symbol *sym_create_symbol_(SymbolTable *table, const char *name, const char *value, const char *trackFile,
                                       int trackLine);

/* The newest symbol of that name, owned by the table; null when there is none. */
NETSIFT_API Symbol *sym_lookup_symbol(SymbolTable *table, const char *name);

/* Frees every symbol and the table; null is allowed. */
NETSIFT_API void sym_delete_table(SymbolTable *table, const char *trackFile, int trackLine);

NETSIFT_END

#endif
