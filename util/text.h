/* Text without an opinion: in-place trimming. */
#ifndef NETSIFT_UTIL_TEXT_H
#define NETSIFT_UTIL_TEXT_H

#include "util/api.h"

NETSIFT_BEGIN

/* Cuts leading and trailing white space (as isspace has it) in place, the rest shifted to the start. Returns the
   argument; null gives null. */
NETSIFT_API char *trim(char *text);

NETSIFT_END

#endif
