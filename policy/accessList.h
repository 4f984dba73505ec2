/* The access level that the time-dependent access list grants a client. */
#ifndef NETSIFT_POLICY_ACCESSLIST_H
#define NETSIFT_POLICY_ACCESSLIST_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int getAccessControl(uint32_t address);

NETSIFT_END

#endif
