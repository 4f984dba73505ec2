/* Condemned pages become permanent blacklist entries. */
#ifndef NETSIFT_POLICY_BLACKLISTADD_H
#define NETSIFT_POLICY_BLACKLISTADD_H

#include "util/api.h"

NETSIFT_BEGIN

/* Adds `url` to the .url.orig file and the loaded table of the blacklist that has the base name of phrase category
   `category` (from 0). The table is the one at the same index: shared categories stand in the same order in
   `categfiles` and `categfiles1`. A URL that the table has is not added again. When no blacklist has the name, its file
   is only opened, and so created; a negative category adds nothing, nor does one without a table.
   Called by the host, with a number that came over a socket: the host sees that it is below the count of `categfiles1`,
   which is not looked at here. The URL becomes a line of that file as it is: a host takes no report of a URL with line
   ends, byte 255 or, in its host, a "*". Failures are traced at level 2, and a file that cannot be opened leaves the
   table as it is. */
NETSIFT_API void addURLToList(int category, const char *url);

NETSIFT_END

#endif
