/* Content codings: which one a field value names, gzip straight from a socket, deflate by pieces. */
#ifndef NETSIFT_HTTP_DECOMPRESSION_H
#define NETSIFT_HTTP_DECOMPRESSION_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int openGZStream(int fd, const char *mode, int limit, gzFile *stream);
NETSIFT_API int isCompressed(const char *coding);
NETSIFT_API char *zlibDecompress(const void *in, unsigned *length, unsigned char *status, unsigned char initialise,
                                 z_stream *stream);

NETSIFT_END

#endif
