/* Where the pop-up blocker script goes into a page. */
#ifndef NETSIFT_POLICY_POPUPINDEX_H
#define NETSIFT_POLICY_POPUPINDEX_H

#include "util/api.h"

NETSIFT_BEGIN

/* Offset of the byte after the ">" of the first "<html" or "<HTML" (no other mixture of cases), which may be `length`;
   -1 when there is no such tag or it does not end in the body. The tag's name is looked for up to a NUL and not in the
   last byte; its ">" may be the last byte. The body is only read. */
NETSIFT_API int getPopUpIndex(char *body, int length);

NETSIFT_END

#endif
