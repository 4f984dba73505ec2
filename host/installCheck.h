/* Everything outside the configuration file that a start needs: folders, lists, pages, logs, database, sockets. */
#ifndef NETSIFT_HOST_INSTALLCHECK_H
#define NETSIFT_HOST_INSTALLCHECK_H

#include "host/problems.h"

namespace netsift::host {

/* Looks at all that the configuration just read needs, and adds every problem. Nothing is changed; what is missing and
   makeMissing could make is in order. */
void checkInstallation(Problems &problems);

/* Makes what a start makes: folders, the cache database, the link to the second engine. */
void makeMissing(Problems &problems);

/* Puts an empty cache database in the place of the one that is there, unless the configuration keeps it: its verdicts
   were found with other lists and settings. A problem when that fails. */
void forgetVerdicts(Problems &problems);

}  // namespace netsift::host

#endif
