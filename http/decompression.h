/* Content codings: which one a field value names, gzip straight from a socket, deflate by pieces. The cycle asks for
   uncoded bodies and does not take these roads; they are there for a host that does. */
#ifndef NETSIFT_HTTP_DECOMPRESSION_H
#define NETSIFT_HTTP_DECOMPRESSION_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Waits until the socket is readable and opens a gzip stream on it with gzdopen's `mode`. `limit` is in seconds,
   negative for none; an interrupted wait starts again with the full limit. Returns 1 with `*stream` open, -1 on a
   time-out or failure. gzclose closes the socket too.

   After a time-out errno is asked too: where it still tells of an interruption from before, the wait starts again, and
   again, until the socket is readable. With StrictHttp errno is cleared before each wait: a limit is a limit. */
NETSIFT_API int openGZStream(int fd, const char *mode, int limit, gzFile *stream);

/* The coding that a Content-Encoding value names, by the first of these words found in it, case-sensitively: 0
   "identity", 1 "gzip", 2 "deflate", 3 "compress"; 0 for none of them or null. "gzip, identity" is thus 0. */
NETSIFT_API int isCompressed(const char *coding);

/* Inflates a piece of a zlib-wrapped (RFC 1950) body of `*length` bytes. `stream` is the caller's for the whole body;
   `initialise` is nonzero with the first piece only, and the caller ends it with inflateEnd.

   Returns a new buffer with what came out, the caller's to free, and sets `*length` to its length. A NUL follows it.
   `*status` is zlib's last code as a byte: 1 at the stream's end, 251 (-5) when the piece is used up, else the failure,
   and the buffer holds what came out before it. 252 (-4) also means that the buffer could not grow, or not beyond the
   4294967295 bytes that a length can tell. Returns null, `*length` unchanged, when the stream cannot be initialised
   (`*status` says why) or when there is no memory to begin with (`*status` unchanged). */
NETSIFT_API char *zlibDecompress(const void *in, unsigned *length, unsigned char *status, unsigned char initialise,
                                 z_stream *stream);

NETSIFT_END

#endif
