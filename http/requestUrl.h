/* The normalised URL of a request, and the small helpers applied to URLs and field values. */
#ifndef NETSIFT_HTTP_REQUESTURL_H
#define NETSIFT_HTTP_REQUESTURL_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API char *getURL(const HeaderLine *line, unsigned *port, char **host);
NETSIFT_API char *decodeURL(const char *text);
NETSIFT_API int isHex(char c);
NETSIFT_API signed char hexToChar(char high, char low);
NETSIFT_API int isAnIP(const char *host);
NETSIFT_API int isBannedContentType(const char *type);
NETSIFT_API char *getModificationTime(const HeaderLine *line);
NETSIFT_API char *lTrim(char *text);
NETSIFT_API char *rTrim(char *text);
NETSIFT_API char *Trim(char *text);

NETSIFT_END

#endif
