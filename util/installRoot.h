/* The folder that the system's fixed paths lie in. */
#ifndef NETSIFT_UTIL_INSTALLROOT_H
#define NETSIFT_UTIL_INSTALLROOT_H

#include "util/api.h"

NETSIFT_BEGIN

/* Put before every fixed path ("/opt/Velmora/...", "/var/Velmora/..."); null or empty at load and for an installed
   system. Owned by the host. A path handed in as an argument is used as it stands. */
NETSIFT_API extern char *installroot;

NETSIFT_END

#endif
