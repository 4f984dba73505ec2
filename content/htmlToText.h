/* What a reader sees of a page: HTML to plain text, in place. */
#ifndef NETSIFT_CONTENT_HTMLTOTEXT_H
#define NETSIFT_CONTENT_HTMLTOTEXT_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API void ConvertHTMLToText(char *buffer, int32_t *length);
NETSIFT_API int ifpresent1(const char *text, const char *word);
NETSIFT_API int processmystring1(char *text);
NETSIFT_API void RemoveSpacesBeforeAndAfterByte(char *text, const char *byte);
NETSIFT_API void CheckForHREFLink(const char *tag, char *destination, int *destinationLength);

NETSIFT_END

#endif
