/* Where the pop-up blocker script goes into a page. */
#ifndef NETSIFT_POLICY_POPUPINDEX_H
#define NETSIFT_POLICY_POPUPINDEX_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int getPopUpIndex(char *body, int length);

NETSIFT_END

#endif
