/* The files that connections' processes collect downloads in for the scan engines. */
#ifndef NETSIFT_HOST_SCANFILES_H
#define NETSIFT_HOST_SCANFILES_H

namespace netsift::host {

/* The scan file of a process, removed whatever way its connection ended. */
void removeScanFile(int pid);

/* Removes the scan files whose process is gone: a daemon that was killed left them, and what people download is nobody
   else's business. Those of running processes and whatever else lies in the folder stay. */
void sweepScanFiles();

}  // namespace netsift::host

#endif
