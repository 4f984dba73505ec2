/* Memory for what is loaded once and then read by a process and all that it forks. What is small lies in the heap; what
   is large lies in a file without a name, of which every process has a private view: pages that are only read are never
   copied, nor is their page table at a fork, however much was loaded; a page that is written to is that process's own
   from then on. */
#ifndef NETSIFT_UTIL_BLOCK_H
#define NETSIFT_UTIL_BLOCK_H

#include <cstddef>

namespace netsift {

struct Block {
  char *bytes;
  size_t size, used;
  bool isMapped;
  int fd; /* of the file until the block is sealed, else -1 */
};

/* A block of zeros; false when memory is short. A large one costs only what is written to, so that `size` may be
   generous. To be released by freeBlock. */
bool newBlock(Block &block, size_t size);

/* The next `size` bytes, null when they are not left. */
char *takeBytes(Block &block, size_t size, size_t alignment);

template <class Item>
Item *takeItems(Block &block, size_t count) {
  return reinterpret_cast<Item *>(takeBytes(block, count * sizeof(Item), alignof(Item)));
}

/* Ends filling: what was not taken is given back, and writes are this process's own from here on. Nothing moves. Before
   it, the block must not be written to by a forked process. False when memory is short; the block is then to be
   released. */
bool sealBlock(Block &block);

bool isInBlock(const Block &block, const void *address);

void freeBlock(Block &block);

}  // namespace netsift

#endif
