/* Block pages: a template file with its substitutions filled in. */
#ifndef NETSIFT_PAGES_HTMLTEMPLATE_H
#define NETSIFT_PAGES_HTMLTEMPLATE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* The file at `path` with every "%" and the byte behind it replaced: %r by `reason`, %u by the first 50 bytes of `url`,
   %a by `mailto`, %e by `errorcode`, each nothing when null, and any other pair, or a "%" that ends the file, by
   nothing. With EscapeText the substitutions are escaped for HTML, and %e loses the colon that a log's stamp ends in.
   A byte of 255 ends the file, but not behind a "%". Returns text that the caller frees, as long as its substitutions
   make it, or null when the file cannot be opened or read. `length` (may be null) gets the count of bytes produced less
   1; the page itself ends at its NUL, which is earlier when the file holds one. */
NETSIFT_API char *readTemplate(const char *path, int32_t *length);

NETSIFT_END

#endif
