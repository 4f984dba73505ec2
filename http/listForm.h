/* The form in which lists are asked for an address while StrictHttp is on, for hosts that make lists of what people
   write. */
#ifndef NETSIFT_HTTP_LISTFORM_H
#define NETSIFT_HTTP_LISTFORM_H

#include "util/api.h"

NETSIFT_BEGIN

/* The normalised URL of HOST[:PORT][/PATH][?QUERY], for the caller to free: the host lower-cased, its last "." gone, in
   ASCII where it was Unicode (UTF-8), addresses as numbers in their one form; no port and no fragment; the path
   percent-decoded once, without one "/" at its end; cut to 500 characters and "..." when longer. Null when that is no
   host, names a user or a port outside 1 to 65535, and when memory is short. */
NETSIFT_API char *netsift_listForm(const char *address);

NETSIFT_END

#endif
