/* Everything outside the configuration file that a start needs: folders, lists, pages, logs, database, sockets. */
#ifndef NETSIFT_HOST_INSTALLCHECK_H
#define NETSIFT_HOST_INSTALLCHECK_H

#include "host/problems.h"

namespace netsift::host {

enum class Missing {
  report, /* --check: nothing is changed; what a start would make is in order when it could */
  make    /* a start makes folders, the cache database and the second engine's link */
};

/* Looks at all that the configuration just read needs, and adds every problem. */
void checkInstallation(Missing missing, Problems &problems);

}  // namespace netsift::host

#endif
