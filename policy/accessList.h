/* The access level that the time-dependent access list grants a client. */
#ifndef NETSIFT_POLICY_ACCESSLIST_H
#define NETSIFT_POLICY_ACCESSLIST_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* The highest level of the entries of `acllist` whose network holds `address` and whose minutes hold the present local
   minute of the day; 2 when that is 0 or less or there is no such entry. An entry that ends before it begins never
   applies. What a level means is the host's business: nothing in the library asks for one. */
NETSIFT_API int getAccessControl(uint32_t address);

NETSIFT_END

#endif
