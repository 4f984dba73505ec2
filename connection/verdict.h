/* The verdict on a chunk of a page, and the answers sent in place of one. */
#ifndef NETSIFT_CONNECTION_VERDICT_H
#define NETSIFT_CONNECTION_VERDICT_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t checkAllRight(char *buffer, int32_t length, int32_t first);
NETSIFT_API int32_t blockConnection(int32_t sock, uint8_t withpage);
NETSIFT_API void sendError(int32_t sock);
NETSIFT_API int32_t closeConnection(int32_t sock1, int32_t sock2, const char *name);
NETSIFT_API int32_t isBlockedPort(int32_t port);

NETSIFT_END

#endif
