/* Bodies, a piece at a time: read, sent, and normalised for judging. */
#ifndef NETSIFT_HTTP_HTTPBODY_ITER_H
#define NETSIFT_HTTP_HTTPBODY_ITER_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Reads a piece of a body: up to `*length` bytes into `buffer`, stopping early once `datalen` are in. `limit` is in
   seconds for each wait, negative for none. Sets `*length` to the bytes read. Returns 0 when the buffer was filled, 1
   when `datalen` was reached or the peer closed, 2 on a time-out, 3 on an error (see readFromSocket). */
NETSIFT_API unsigned char getHTTPBody(int fd, void *buffer, unsigned *length, int limit, int datalen);

/* The same through the gzip stream that openGZStream opened on `fd`; counts are of decompressed bytes.
   zlib fills a buffer of its own from the socket, so the limit holds for the wait before each read, not for the
   read. */
NETSIFT_API signed char getGZHTTPBody(int fd, gzFile stream, void *buffer, unsigned *length, int limit, int datalen);

/* Sends all of a piece. Returns 0, -1 on a time-out, -2 on an error, -3 when nothing was taken (see sendToSocket). */
NETSIFT_API signed char sendHTTPBody(int fd, const void *buffer, int length, int limit);

/* The form of a text that phrases are looked for in: ASCII letters in lower case, NULs left out, each run of blanks,
   TABs, CRs and LFs one blank, a run at the end dropped and one at the start kept. Other bytes stay as they are.
   Returns a new text with its NUL, at most `length` bytes long, and sets `*outLength`; the caller frees it. Null when
   memory is short. A negative length counts as 0. */
NETSIFT_API char *preProcessBody(const char *body, int length, int *outLength);

NETSIFT_END

#endif
