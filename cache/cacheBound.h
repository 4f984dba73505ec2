/* How many verdicts the cache keeps. Internal to the library. */
#ifndef NETSIFT_CACHE_CACHEBOUND_H
#define NETSIFT_CACHE_CACHEBOUND_H

namespace netsift {

/* To be called when a verdict was stored under `key`: holds the database to CacheMaxEntries, 0 for no bound. Counting
   reads all of its buckets, so it is done after one store in so many (a 256th of the bound, at most 1000), on an average
   and whichever process stores: for a while there are some more. What is too many goes then, and a 64th of the bound
   with it: the verdicts that follow the key in the order of hashes, which are any. */
void boundCache(const char *database, const char *key);

}  // namespace netsift

#endif
