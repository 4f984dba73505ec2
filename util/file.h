/* Questions about files on disk. */
#ifndef NETSIFT_UTIL_FILE_H
#define NETSIFT_UTIL_FILE_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API long get_file_size(const char *path);

NETSIFT_END

#endif
