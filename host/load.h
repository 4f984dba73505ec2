/* The start-up order: the debug log, then every list, into the library of this process. */
#ifndef NETSIFT_HOST_LOAD_H
#define NETSIFT_HOST_LOAD_H

#include <string>

#include "host/problems.h"

namespace netsift::host {

/* Loads what the configuration just read and checked names. What fails is added to the problems; the process is then
   good for nothing but telling them. */
void loadLibrary(Problems &problems);

/* The same for who only reads, with a folder of the caller's own, empty, in which lists are made: no log is opened, and
   neither lists nor verdicts in use are touched. */
void loadAside(const std::string &folder, Problems &problems);

}  // namespace netsift::host

#endif
