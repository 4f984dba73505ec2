/* Socket I/O with time limits.

   Limits are whole seconds and count for each wait by itself, never for a whole transfer. Descriptor numbers above 1023
   work. A wait that a signal interrupts is resumed, except in sendSocketLine. No operation closes its descriptor or
   keeps state between calls. Sends to a closed peer raise SIGPIPE: a host that does not want to die of it ignores the
   signal. Time-outs and failed waits are traced at level 4, the rest at level 7. */
#ifndef NETSIFT_HTTP_SOCKET_H
#define NETSIFT_HTTP_SOCKET_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Sends the whole buffer, waiting up to `limit` seconds (and a microsecond) before every write; a negative limit waits
   for ever. Returns 0 when all is sent, -1 on a time-out, -2 when a wait or a write failed or `length` is negative, -3
   when a write took no byte (as it does when `length` is 0). */
NETSIFT_API int sendToSocket(int fd, const void *buffer, int length, int limit);

/* Sends the text with a single write after a single wait of up to `limit` seconds (negative: no limit). Returns the
   text's length, even when the write took only a part of it; 0 on a time-out, a failed or interrupted wait, a failed
   write, or a null text. */
NETSIFT_API int sendSocketLine(int fd, const char *text, int limit);

/* Reads into the buffer until `length` bytes are in, or at least `datalen`, or the peer closes; waits up to `limit`
   seconds before every read (0: only what has arrived; negative: no limit). Returns the number of bytes read and sets
   `status`: 0 the buffer is full, 1 `datalen` reached or stream closed, 2 time-out, 3 a wait or a read failed. The
   count is compared with `datalen` as a signed number: with a negative one the first read is the last. */
NETSIFT_API unsigned readFromSocket(int fd, void *buffer, unsigned length, unsigned char *status, int limit,
                                    int datalen);

/* The same through a gzip stream opened on the descriptor; the counts are of decompressed bytes. */
NETSIFT_API unsigned readGZFromSocket(int fd, gzFile stream, void *buffer, unsigned length, unsigned char *status,
                                      int limit, int datalen);

/* Reads one line, CR and LF kept, of at most `*length` bytes (any value); what is longer is cut there and the rest is
   the next line. Only the wait for the line's first byte is limited, to `limit` seconds (0 or less: no limit); the rest
   is waited for without limit. No byte after the line is taken from the descriptor.

   Returns the line, NUL-terminated, to be freed by the caller, with its size in `*length`. `status`: 0 a line; 1 the
   peer closed, and the line is what came before; 255 time-out and 254 failed wait or no memory, both without a line;
   253 no memory to grow, with the line as far as it was read and `*length` unchanged.

   A read that fails counts as a received byte of value 0: a descriptor that only fails gives a line of `*length` bytes
   with status 0. */
NETSIFT_API char *getSocketLine(int fd, unsigned *length, unsigned char *status, int limit);

/* Reads a chunk-header line, without time limit. The test for the line's end looks at the position after the byte just
   received; the buffer is cleared, so that it never finds one there and the line ends with the stream: a line end does
   not end it. A read that fails or is interrupted counts as a received byte of value 0. Returns what was read,
   NUL-terminated, to be freed by the caller, with its size in `*length`; null without memory for the first 256 bytes
   (status 1). `status`: 1 the stream ended; 254 no memory to grow, with the last byte dropped. After 1048576 failed
   reads in a row there is no more memory. */
NETSIFT_API char *getSocketLine1(int fd, unsigned *length, unsigned char *status);

/* Reads CR LF pairs until two bytes are something else, and answers -1 always. The wait before each read is for the
   descriptor to become writable, up to 10 seconds. Also ends when a wait or a read fails, times out or falls short. */
NETSIFT_API int getCRLF(int fd);

/* Writes CR LF again and again until a wait of up to 10 seconds fails or times out, or a write takes nothing or fails
   for good; answers -1 always. */
NETSIFT_API int sendCRLF(int fd);

/* The number that a chunk-header line stands for, up to its first space or CR or its end (null: 0): decimal and hex
   digits count 0 to 15, but each place is worth ten. Other characters are folded in by their distance from 'a' - 10,
   lower-cased; the value wraps in 32 bits. "1a\r\n" is 20. */
NETSIFT_API int getChunkSize(const char *line);

NETSIFT_END

#endif
