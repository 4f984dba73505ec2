/* The scan file of a response: its body is collected there, judged by the engines, and delivered from it. The file's
   name carries the process id, so that connections never share one. */
#ifndef NETSIFT_CONNECTION_SCANSPOOL_H
#define NETSIFT_CONNECTION_SCANSPOOL_H

#include <cstddef>
#include <cstdint>

namespace netsift {

constexpr size_t virusNameSize = 256; /* what the engines' clients may write */

/* While scanning is on: builds virfilename (and childpid) and removes what an earlier response left under that name.
   False when an old file stands in the way. A path that does not fit virfilename is traced and left empty: no file can
   be created under it. */
bool prepareSpool();

/* Appends a piece, on disk before it counts. False, traced, when the file cannot be created or written. */
bool appendToSpool(const char *piece, size_t length);

/* The engines' verdict on the file as far as it is: 1 infected, 0 clean, -1 no engine, -2 or -3 failure. */
int32_t scanSpool(char (&virusName)[virusNameSize]);

/* The same under StrictHttp, where each engine that is switched on has to find the file clean. */
int32_t scanSpoolByAll(char (&virusName)[virusNameSize]);

/* Reads up to `length` bytes of the file from `offset`; 0 at its end or when it cannot be read. */
size_t readFromSpool(uint64_t offset, char *piece, size_t length);

/* Closes the file; it stays on disk until the process's next response. */
void closeSpool();

/* Closes and removes it, at the connection's end. */
void removeSpool();

}  // namespace netsift

#endif
