/* Condemned pages become permanent blacklist entries. */
#ifndef NETSIFT_POLICY_BLACKLISTADD_H
#define NETSIFT_POLICY_BLACKLISTADD_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API void addURLToList(int category, const char *url);

NETSIFT_END

#endif
