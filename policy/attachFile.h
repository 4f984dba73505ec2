/* Uploads: which servers may take them, and the removal of a form's file. */
#ifndef NETSIFT_POLICY_ATTACHFILE_H
#define NETSIFT_POLICY_ATTACHFILE_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int checkUrl(const char *url);
NETSIFT_API int blockAttachment(int length, char *body);

NETSIFT_END

#endif
