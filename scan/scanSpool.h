/* The scan file of a response: its body is collected there, judged by the engines, and delivered from it. The file's
   name carries the process id, so that connections never share one. It stays on disk until the next response is scanned:
   what is left after a connection is the host's to remove. */
#ifndef NETSIFT_SCAN_SCANSPOOL_H
#define NETSIFT_SCAN_SCANSPOOL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace netsift {

constexpr size_t virusNameSize = 256; /* what the engines' clients may write */

/* Builds virfilename (and childpid), whether or not scanning is on. A path that does not fit virfilename is traced and
   left empty: no file can be created under it. */
void nameSpool();

/* Removes what an earlier response left under that name. False, traced, when an old file stands in the way. */
bool clearSpool();

/* Appends a piece to the file, opened for it alone. False, traced, when the file cannot be created or written. */
bool appendToSpool(const char *piece, size_t length);

/* The engines' verdict on the file as far as it is: 1 infected, 0 clean, -1 no engine, -2 or -3 failure. */
int32_t scanSpool(char (&virusName)[virusNameSize]);

/* The same under StrictHttp, where each engine that is switched on has to find the file clean. */
int32_t scanSpoolByAll(char (&virusName)[virusNameSize]);

/* The file opened for reading; -1 when it cannot be. */
int openSpool();

/* Reads up to `length` bytes of an open scan file from `offset`; 0 at its end or when it cannot be read. */
size_t readSpool(int file, uint64_t offset, char *piece, size_t length);

void closeSpool(int file);

/* StrictHttp: the file is made by its own response, nobody else's, and held open over it; what is delivered is what was
   scanned. -1, traced, when it cannot be made or something stands in its place. */
int createSpool();

/* Appends to it. False, traced, when it cannot be written; what was written of the piece is taken back. */
bool writeSpool(int file, uint64_t size, const char *piece, size_t length);

/* Whether the engines, which open it by its path, find the very file, of that size. */
bool isSpoolInPlace(int file, uint64_t size);

constexpr uint64_t spoolEnd = UINT64_MAX;

/* Takes the bytes of an open scan file from `delivered` up to `end` in blocks of `size` at most, through `block`, and
   hands them to `send(const char *, size_t) -> bool`, until there are no more or that says false. `delivered` counts
   what was sent. False when `send` said so. */
template <typename SendBlock>
bool releaseSpool(int file, uint64_t &delivered, uint64_t end, char *block, size_t size, SendBlock send) {
  bool sent = true;
  while (sent && delivered < end) {
    const size_t count = readSpool(file, delivered, block, std::min<uint64_t>(size, end - delivered));
    if (count == 0) break;
    sent = send(block, count);
    if (sent) delivered += count;
  }
  return sent;
}

}  // namespace netsift

#endif
