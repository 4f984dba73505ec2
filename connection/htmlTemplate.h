/* Block pages: a template file with its substitutions filled in. */
#ifndef NETSIFT_CONNECTION_HTMLTEMPLATE_H
#define NETSIFT_CONNECTION_HTMLTEMPLATE_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API char *readTemplate(const char *path, int32_t *length);

NETSIFT_END

#endif
