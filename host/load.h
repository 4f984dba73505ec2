/* The start-up order: the debug log, then every list, into the library of this process. */
#ifndef NETSIFT_HOST_LOAD_H
#define NETSIFT_HOST_LOAD_H

#include "host/problems.h"

namespace netsift::host {

/* Loads what the configuration just read and checked names. What fails is added to the problems; the process is then
   good for nothing but telling them. */
void loadLibrary(Problems &problems);

}  // namespace netsift::host

#endif
