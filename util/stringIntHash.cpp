#include "util/stringIntHash.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

using Pair = string_int_hash_pair_list;

int32_t bucketOf(const char *key, int32_t buckets) { return (hash_string(key) & 0x3FFFFFFF) % buckets; }

/* The link that leads to the key's pair: the place to read, replace or unhook it. Null when the key is absent. */
Pair **findLink(const string_int_hash *hash, const char *key) {
  if (hash == nullptr || key == nullptr || hash->buckets == 0) return nullptr;
  for (Pair **link = &hash->table[bucketOf(key, hash->buckets)]; *link != nullptr; link = &(*link)->next) {
    if (string_equal((*link)->key, key)) return link;
  }
  return nullptr;
}

void pushFront(Pair **table, int32_t buckets, Pair *pair) {
  Pair **bucket = &table[bucketOf(pair->key, buckets)];
  pair->next = *bucket;
  *bucket = pair;
}

/* Moves to the first pair of `bucket` or of one behind it. */
string_int_hash_position firstPairFrom(string_int_hash *hash, int32_t bucket) {
  for (; hash != nullptr && bucket < hash->buckets; bucket++) {
    if (hash->table[bucket] != nullptr) return {hash, bucket, hash->table[bucket]};
  }
  return {hash, bucket, nullptr};
}

}  // namespace

string_int_hash *string_int_hash_new(void) {
  return static_cast<string_int_hash *>(std::calloc(1, sizeof(string_int_hash)));
}

void string_int_hash_set(string_int_hash *hash, char *key, int32_t value) {
  if (hash == nullptr || key == nullptr) return;
  if (int32_t *present = string_int_hash_get(hash, key)) {
    *present = value;
    return;
  }

  const int64_t entries = hash->entries;
  if (hash->buckets < 6 * entries / 5 + 1) string_int_hash_resize(hash, static_cast<int32_t>(2 * entries + 10));
  auto *pair = static_cast<Pair *>(std::malloc(sizeof(Pair)));
  if (pair == nullptr || hash->buckets == 0) {
    std::free(pair);
    return;
  }
  pair->key = key;
  pair->value = value;
  pushFront(hash->table, hash->buckets, pair);
  hash->entries++;
}

int32_t *string_int_hash_get(string_int_hash *hash, const char *key) {
  Pair **link = findLink(hash, key);
  return link == nullptr ? nullptr : &(*link)->value;
}

int string_int_hash_contains_key(string_int_hash *hash, const char *key) { return findLink(hash, key) != nullptr; }

void string_int_hash_remove(string_int_hash *hash, const char *key) {
  Pair **link = findLink(hash, key);
  if (link == nullptr) return;
  Pair *pair = *link;
  *link = pair->next;
  std::free(pair);
  hash->entries--;
  if (hash->buckets > int64_t{3} * hash->entries) string_int_hash_resize(hash, hash->entries);
}

void string_int_hash_resize(string_int_hash *hash, int32_t size) {
  if (hash == nullptr) return;
  const int64_t wanted = 6 * int64_t{size < 0 ? 0 : size} / 5 + 2;
  if (wanted > std::numeric_limits<int32_t>::max()) return;
  const auto buckets = static_cast<int32_t>(wanted);
  auto **table = static_cast<Pair **>(std::calloc(static_cast<size_t>(buckets), sizeof(Pair *)));
  if (table == nullptr) return;

  for (int32_t bucket = 0; bucket < hash->buckets; bucket++) {
    for (Pair *pair = hash->table[bucket], *next; pair != nullptr; pair = next) {
      next = pair->next;
      pushFront(table, buckets, pair);
    }
  }
  std::free(hash->table);
  hash->table = table;
  hash->buckets = buckets;
}

void string_int_hash_clear(string_int_hash *hash) {
  if (hash == nullptr) return;
  for (int32_t bucket = 0; bucket < hash->buckets; bucket++) {
    for (Pair *pair = hash->table[bucket], *next; pair != nullptr; pair = next) {
      next = pair->next;
      std::free(pair);
    }
  }
  std::free(hash->table);
  *hash = {};
}

string_int_hash_position string_int_hash_first(string_int_hash *hash) { return firstPairFrom(hash, 0); }

void string_int_hash_next(string_int_hash_position *position) {
  if (position->pair == nullptr) return;
  position->pair = position->pair->next;
  if (position->pair == nullptr) *position = firstPairFrom(position->hash, position->bucket + 1);
}

int string_int_hash_done(const string_int_hash_position *position) { return position->pair == nullptr; }

char *string_int_hash_key(const string_int_hash_position *position) {
  return position->pair == nullptr ? nullptr : position->pair->key;
}

int32_t string_int_hash_value(const string_int_hash_position *position) {
  return position->pair == nullptr ? 0 : position->pair->value;
}

int32_t hash_string(const char *text) {
  int32_t h = 0;
  for (; text != nullptr && *text != '\0'; text++) {
    const auto byte = static_cast<signed char>(*text);
    const auto code = static_cast<uint32_t>(byte > 95 ? byte - 40 : byte);
    /* The middle term keeps its sign: an arithmetic shift of the signed value. */
    h = static_cast<int32_t>(static_cast<uint32_t>(h) * 8 + static_cast<uint32_t>(h >> 28) + code);
  }
  return h;
}

int string_equal(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return a == b;
  return std::strcmp(a, b) == 0;
}
