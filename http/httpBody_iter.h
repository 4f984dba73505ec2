/* Bodies, a piece at a time: read, sent, and normalised for judging. */
#ifndef NETSIFT_HTTP_HTTPBODY_ITER_H
#define NETSIFT_HTTP_HTTPBODY_ITER_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API unsigned char getHTTPBody(int fd, void *buffer, unsigned *length, int limit, int datalen);
NETSIFT_API signed char getGZHTTPBody(int fd, gzFile stream, void *buffer, unsigned *length, int limit, int datalen);
NETSIFT_API signed char sendHTTPBody(int fd, const void *buffer, int length, int limit);
NETSIFT_API char *preProcessBody(const char *body, int length, int *outLength);

NETSIFT_END

#endif
