/* The .url files of the lists, made so that none is ever cut. The library's own loading writes them in place and takes
   what it finds afterwards; here each is made beside its place, and the library is shown a root in which the lists have
   nothing to be made of. */
#ifndef NETSIFT_HOST_MADELISTS_H
#define NETSIFT_HOST_MADELISTS_H

#include <string>
#include <vector>

#include "host/problems.h"

namespace netsift::host {

struct MadeLists {
  std::string root;              /* what installroot is to be while the library loads the lists */
  std::vector<std::string> made; /* .url files that wait beside their places, under the name with ".new" behind it */
  bool isAside = false;          /* they wait in the root instead, for who only reads: nothing is ever to be placed */
};

/* Makes what the lists of the configuration just read need: each .url file that can be made anew, with what was
   reported behind it, is whole and on the disk, or there is a problem that says why not. */
MadeLists makeLists(Problems &problems);

/* The same in a root of the caller's own, a folder that is empty; nothing else is written. */
MadeLists makeListsAside(const std::string &root, Problems &problems);

/* Puts what was made in its place. To be called when all of it was loaded. */
void placeLists(const MadeLists &lists, Problems &problems);

/* Removes the root, and what was made and not put in its place. */
void dropLists(const MadeLists &lists);

}  // namespace netsift::host

#endif
