/* The access log: one line of five quoted fields a block. */
#ifndef NETSIFT_LOG_ACCESSLOG_H
#define NETSIFT_LOG_ACCESSLOG_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Appends a line to the file `logfilename` of the log folder while `logenable` is on: the local time as ctime writes
   it, `clientip`, `url`, `first`, `second`, each between double quotes as it is, with EscapeText escaped; a null text
   is empty. The line goes out in one write, so that the processes' lines do not mix. `flag` is not used. A line that
   cannot be written is lost, traced at level 1. */
NETSIFT_API void storeLog(const char *first, const char *second, int8_t flag);

NETSIFT_END

#endif
