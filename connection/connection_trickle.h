/* One client connection, from its first request to its end. */
#ifndef NETSIFT_CONNECTION_CONNECTION_TRICKLE_H
#define NETSIFT_CONNECTION_CONNECTION_TRICKLE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int32_t connectionHandle(void);

NETSIFT_END

#endif
