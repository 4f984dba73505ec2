/* A map from texts to counts; keys belong to the caller. */
#ifndef NETSIFT_SCAN_STRINGINTHASH_H
#define NETSIFT_SCAN_STRINGINTHASH_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

typedef struct string_int_hash_pair_list {
  char *key;
  int32_t value;
  struct string_int_hash_pair_list *next;
} string_int_hash_pair_list;

typedef struct string_int_hash {
  int32_t entries, buckets;
  string_int_hash_pair_list **table;
} string_int_hash;

typedef struct string_int_hash_position {
  string_int_hash *hash;
  int32_t bucket;
  string_int_hash_pair_list *pair;
} string_int_hash_position;

NETSIFT_API string_int_hash *string_int_hash_new(void);
NETSIFT_API void string_int_hash_set(string_int_hash *hash, char *key, int32_t value);
NETSIFT_API int32_t *string_int_hash_get(string_int_hash *hash, const char *key);
NETSIFT_API int string_int_hash_contains_key(string_int_hash *hash, const char *key);
NETSIFT_API void string_int_hash_remove(string_int_hash *hash, const char *key);
NETSIFT_API void string_int_hash_resize(string_int_hash *hash, int32_t size);
NETSIFT_API void string_int_hash_clear(string_int_hash *hash);
NETSIFT_API string_int_hash_position string_int_hash_first(string_int_hash *hash);
NETSIFT_API void string_int_hash_next(string_int_hash_position *position);
NETSIFT_API int string_int_hash_done(const string_int_hash_position *position);
NETSIFT_API char *string_int_hash_key(const string_int_hash_position *position);
NETSIFT_API int32_t string_int_hash_value(const string_int_hash_position *position);
NETSIFT_API int32_t hash_string(const char *text);
NETSIFT_API int string_equal(const char *a, const char *b);

NETSIFT_END

#endif
