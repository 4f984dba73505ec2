#include "util/block.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace netsift {

namespace {

/* Below this, a mapping costs a fork more than the pages would. */
constexpr size_t largestInHeap = 64 * 1024;
constexpr int readAndWrite = PROT_READ | PROT_WRITE;

size_t wholePages(size_t size) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return std::max<size_t>((size + page - 1) / page, 1) * page;
}

char *mapped(size_t size, int flags, int fd) {
  void *bytes = mmap(nullptr, size, readAndWrite, flags, fd, 0);
  return bytes == MAP_FAILED ? nullptr : static_cast<char *>(bytes);
}

}  // namespace

bool newBlock(Block &block, size_t size) {
  block = {nullptr, size, 0, size > largestInHeap, -1};
  if (!block.isMapped) {
    block.bytes = static_cast<char *>(std::calloc(1, std::max<size_t>(size, 1)));
    return block.bytes != nullptr;
  }
  block.fd = memfd_create("netsift-list", MFD_CLOEXEC);
  if (block.fd >= 0 && ftruncate(block.fd, static_cast<off_t>(size)) == 0) {
    block.bytes = mapped(size, MAP_SHARED, block.fd);
  }
  if (block.bytes != nullptr) return true;
  if (block.fd >= 0) close(block.fd);
  block.fd = -1;
  block.bytes = mapped(size, MAP_PRIVATE | MAP_ANONYMOUS, -1); /* forks copy its page table, no more than that */
  return block.bytes != nullptr;
}

char *takeBytes(Block &block, size_t size, size_t alignment) {
  const size_t start = (block.used + alignment - 1) / alignment * alignment;
  if (start > block.size || size > block.size - start) return nullptr;
  block.used = start + size;
  return block.bytes + start;
}

bool sealBlock(Block &block) {
  const size_t kept = wholePages(block.used), whole = wholePages(block.size);
  block.size = block.used; /* nothing more is taken */
  if (!block.isMapped) return true;
  if (kept < whole) munmap(block.bytes + kept, whole - kept);
  if (block.fd < 0) return true;
  const bool isCut = ftruncate(block.fd, static_cast<off_t>(kept)) == 0;
  char *view = isCut ? mapped(kept, MAP_PRIVATE, block.fd) : nullptr;
  close(block.fd);
  block.fd = -1;
  if (view == nullptr) return false;
  /* Into the filled view's place. That place may be empty if it fails, and with it all that was loaded. */
  if (mremap(view, kept, kept, MREMAP_MAYMOVE | MREMAP_FIXED, block.bytes) == MAP_FAILED) std::abort();
  return true;
}

bool isInBlock(const Block &block, const void *address) {
  return reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(block.bytes) < block.size;
}

void freeBlock(Block &block) {
  if (block.fd >= 0) close(block.fd);
  if (!block.isMapped) {
    std::free(block.bytes);
  } else if (block.bytes != nullptr) {
    munmap(block.bytes, wholePages(block.size));
  }
  block = {nullptr, 0, 0, false, -1};
}

}  // namespace netsift
