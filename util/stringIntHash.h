/* A map from texts to counts; keys belong to the caller. It holds the lines of a whitelist file while one question is
   answered. */
#ifndef NETSIFT_UTIL_STRINGINTHASH_H
#define NETSIFT_UTIL_STRINGINTHASH_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

typedef struct string_int_hash_pair_list {
  char *key; /* the caller's pointer, not a copy */
  int32_t value;
  struct string_int_hash_pair_list *next;
} string_int_hash_pair_list;

typedef struct string_int_hash {
  int32_t entries, buckets;
  string_int_hash_pair_list **table; /* null while there are no buckets */
} string_int_hash;

typedef struct string_int_hash_position {
  string_int_hash *hash;
  int32_t bucket;
  string_int_hash_pair_list *pair; /* null: done */
} string_int_hash_position;

/* An empty map, without buckets; null when memory is short. string_int_hash_clear and then free release it. The other
   operations take a null map for an empty one that cannot be written. */
NETSIFT_API string_int_hash *string_int_hash_new(void);

/* Sets the value of `key`. A new key is kept by pointer, so it must outlive its stay in the map; a key whose text is
   there already only has its value replaced, and `key` itself is not kept. The table grows to (6 x (2 x entries + 10))
   / 5 + 2 buckets when it has less than (6 x entries) / 5 + 1. A pair that memory is short for is not set. */
NETSIFT_API void string_int_hash_set(string_int_hash *hash, char *key, int32_t value);

/* The address of the key's value inside the map, valid until that pair is removed; null when it is absent. */
NETSIFT_API int32_t *string_int_hash_get(string_int_hash *hash, const char *key);

/* 1 when the key is there, else 0. */
NETSIFT_API int string_int_hash_contains_key(string_int_hash *hash, const char *key);

/* Takes the pair out, not freeing its key: whoever made the key frees it. The table shrinks to (6 x entries) / 5 + 2
   buckets when it then has more than 3 x entries. An absent key changes nothing. */
NETSIFT_API void string_int_hash_remove(string_int_hash *hash, const char *key);

/* Rebuilds the table with (6 x size) / 5 + 2 buckets; a size below zero counts as zero. When that many buckets cannot
   be had or counted, the table stays as it is. */
NETSIFT_API void string_int_hash_resize(string_int_hash *hash, int32_t size);

/* Frees pairs and buckets, not the keys; the map itself stays and can be filled again. */
NETSIFT_API void string_int_hash_clear(string_int_hash *hash);

/* A walk over all pairs, bucket by bucket: for (p = first(map); !done(&p); next(&p)). Setting a new key or removing
   one ends its validity. Past the end the key is null and the value 0. */
NETSIFT_API string_int_hash_position string_int_hash_first(string_int_hash *hash);
NETSIFT_API void string_int_hash_next(string_int_hash_position *position);
NETSIFT_API int string_int_hash_done(const string_int_hash_position *position);
NETSIFT_API char *string_int_hash_key(const string_int_hash_position *position);
NETSIFT_API int32_t string_int_hash_value(const string_int_hash_position *position);

/* The hash of a text, over its bytes as signed characters, wrapping in 32 bits; a pair's bucket is this AND 0x3FFFFFFF
   modulo the number of buckets. */
NETSIFT_API int32_t hash_string(const char *text);

/* 1 when the texts are the same, byte for byte, else 0; null equals only null. */
NETSIFT_API int string_equal(const char *a, const char *b);

NETSIFT_END

#endif
