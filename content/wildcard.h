/* The one wildcard matcher, and the small string tests around it. */
#ifndef NETSIFT_CONTENT_WILDCARD_H
#define NETSIFT_CONTENT_WILDCARD_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int isMatching(const char *text, const char *pattern);
NETSIFT_API int beginsWith(const char *text, const char *prefix);
NETSIFT_API int beginsWithCI(const char *text, const char *prefix);
NETSIFT_API signed char strsearch(const char *text, const char *needle);
NETSIFT_API int contains(const char *text, const char *word);
NETSIFT_API int containsBeforeDelim(const char *text, const char *needle, char delimiter);

NETSIFT_END

#endif
