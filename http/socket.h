/* Socket I/O with time limits: the one place that waits on a descriptor. */
#ifndef NETSIFT_HTTP_SOCKET_H
#define NETSIFT_HTTP_SOCKET_H

#include <zlib.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int sendToSocket(int fd, const void *buffer, int length, int limit);
NETSIFT_API int sendSocketLine(int fd, const char *text, int limit);
NETSIFT_API unsigned readFromSocket(int fd, void *buffer, unsigned length, unsigned char *status, int limit,
                                    int datalen);
NETSIFT_API unsigned readGZFromSocket(int fd, gzFile stream, void *buffer, unsigned length, unsigned char *status,
                                      int limit, int datalen);
NETSIFT_API char *getSocketLine(int fd, unsigned *length, unsigned char *status, int limit);
NETSIFT_API char *getSocketLine1(int fd, unsigned *length, unsigned char *status);
NETSIFT_API int getCRLF(int fd);
NETSIFT_API int sendCRLF(int fd);
NETSIFT_API int getChunkSize(const char *line);

NETSIFT_END

#endif
