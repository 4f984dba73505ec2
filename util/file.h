/* Questions about files on disk. */
#ifndef NETSIFT_UTIL_FILE_H
#define NETSIFT_UTIL_FILE_H

#include "util/api.h"

NETSIFT_BEGIN

/* The size in bytes as stat(2) gives it; -1 when the file cannot be examined. */
NETSIFT_API long get_file_size(const char *path);

NETSIFT_END

#endif
