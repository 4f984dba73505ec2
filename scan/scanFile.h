/* The scan file that a child collects a body in. Internal to the library. */
#ifndef NETSIFT_SCAN_SCANFILE_H
#define NETSIFT_SCAN_SCANFILE_H

namespace netsift {

/* Sets `childpid`, and `virfilename` to VIRFILE_DIR and "scanfile.<pid>". False when that does not fit: it is traced at
   level 1 and `virfilename` left empty, a file that nothing can open. */
bool nameScanFile();

}  // namespace netsift

#endif
