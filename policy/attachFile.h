/* Uploads: which servers may take them, and the removal of a form's file. */
#ifndef NETSIFT_POLICY_ATTACHFILE_H
#define NETSIFT_POLICY_ATTACHFILE_H

#include "util/api.h"

NETSIFT_BEGIN

/* 1: an entry of `uploadwhitelist` occurs in `url`, its leading "www." not counted; 0: none does; -1: memory was short,
   which callers take as allowed. The list ends at its first empty entry, or after its hundredth. */
NETSIFT_API int checkUrl(const char *url);

/* Empties the file name, and removes the content type, of the first form part of `body`, which is a piece of a
   multipart form (RFC 7578) of `length` bytes. Fields are looked for up to the first NUL, or in all of it while
   `StrictHttp` is on; a name or a type that is removed may hold NULs. Sets `reason` in any case. Returns how many
   bytes the caller is to forward less, 0 to `length`: those of the name and of the content type, but not the closing
   quote that goes with the name, so that the forwarded body ends in a NUL. 0: there is no form part with a file name,
   or some later part has an empty one. A name whose closing quote is not in this piece reaches to its end. */
NETSIFT_API int blockAttachment(int length, char *body);

NETSIFT_END

#endif
