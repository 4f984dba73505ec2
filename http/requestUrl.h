/* The normalised URL of a request, and the small helpers applied to URLs and field values.

   Lists, cache, logs and block pages all know a request by its normalised URL: host and path, no scheme, no port, no
   "/" at the end. */
#ifndef NETSIFT_HTTP_REQUESTURL_H
#define NETSIFT_HTTP_REQUESTURL_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Takes the request line (RFC 9112, 3) apart. `line` is a request's first line; only when its target is a path are the
   lines after it asked for the Host field.

   Returns the normalised URL and sets `port` (80 when none is given) and `host`; the caller frees both texts. Writes
   the method to `request`. Returns null when the line is unusable: no white space after the method, a method longer
   than 14 characters, no " HTTP" or " http" after the target, a path without a Host field, no memory. `port` and `host`
   are left alone then, and the longer method leaves `request` alone too.

   - Target not starting with "/": when one of its first 8 characters is "/", what precedes it and the character after
     it are taken for the scheme and skipped. The host goes up to ":", "/" or a blank. The last character is kept, but one
     "/" at the end is dropped.
   - Target starting with "/": the host is the Host field's, and the target's last character is dropped whatever it is,
     then one "/" at the end. "/index.html" becomes "/index.htm": lists are written against this form.
   - A host is cut to its length modulo 256, in the URL as well. An incomplete target such as "http:/" gives an empty
     host and URL.
   - A port is folded without a look at its digits and wraps in 32 bits.
   - A URL of 501 characters or more is cut to 500 followed by "...". */
NETSIFT_API char *getURL(const HeaderLine *line, unsigned *port, char **host);

/* A copy with every "%" and two hexadecimal digits turned into the byte they mean ("%00" too, which ends the text); any
   other "%" and "+" stay. The caller frees it. Null for null or when memory is short. */
NETSIFT_API char *decodeURL(const char *text);

/* 1 for '0' to '9', 'A' to 'F' and 'a' to 'f', else 0. */
NETSIFT_API int isHex(char c);

/* The byte that two hexadecimal digits mean; letters must be lower case. Anything else folds to some byte. */
NETSIFT_API signed char hexToChar(char high, char low);

/* 1 when the last character is a decimal digit, else 0 (an empty or null host too). So "host9" is taken for an address
   and "1.2.3.4." is not. */
NETSIFT_API int isAnIP(const char *host);

/* 1 when some entry of `blockedcontent` occurs in the type (case matters, but not on the strict road), with `reason`
   naming the first such entry; else 0. The first empty entry or the hundredth ends the list; an entry may fill its 100
   bytes without a NUL. */
NETSIFT_API int isBannedContentType(const char *type);

/* The value of the first "Last-Modified: " line (any case, exactly one blank), without its last two characters, which
   are the CR LF; a value shorter than that is empty. Null when there is no such line. The text "ERROR" when there is no
   memory for the value, or null when there is none for that either. Every text is an allocation for the caller to
   free. */
NETSIFT_API char *getModificationTime(const HeaderLine *line);

/* White space (isspace) removed from the start, the end, both. The result lies inside the argument and is not to be
   freed; rTrim and Trim write a NUL there. Null gives null. */
NETSIFT_API char *lTrim(char *text);
NETSIFT_API char *rTrim(char *text);
NETSIFT_API char *Trim(char *text);

NETSIFT_END

#endif
