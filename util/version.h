/* The version, in its one place: the build takes it from here. */
#ifndef NETSIFT_UTIL_VERSION_H
#define NETSIFT_UTIL_VERSION_H

#include "util/api.h"

/* Of the headers that a host is compiled with. What a host of the same first number was built against stays: names,
   records, values and meanings. A new name raises the second number, anything else the third. */
#define NETSIFT_VERSION_MAJOR 1
#define NETSIFT_VERSION_MINOR 0
#define NETSIFT_VERSION_PATCH 0
#define NETSIFT_VERSION "1.0.0"

NETSIFT_BEGIN

/* Of the library that the host runs with, in the form of NETSIFT_VERSION; static. */
NETSIFT_API const char *netsift_version(void);

NETSIFT_END

#endif
