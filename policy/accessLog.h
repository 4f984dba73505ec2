/* The access log: one line of five quoted fields a block. */
#ifndef NETSIFT_POLICY_ACCESSLOG_H
#define NETSIFT_POLICY_ACCESSLOG_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API void storeLog(const char *first, const char *second, int8_t flag);

NETSIFT_END

#endif
