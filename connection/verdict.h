/* The verdict on a chunk of a page, and on a port. */
#ifndef NETSIFT_CONNECTION_VERDICT_H
#define NETSIFT_CONNECTION_VERDICT_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Judges one chunk of a text response by its rating labels (`first` nonzero: the response's first chunk) and by the
   phrases in its visible text. 0: it may pass. -1: the page is blocked; the block page has been sent, `url` and
   `hostname` are null and both heads destroyed. `length` bytes of `buffer`, which are as they were on return and need
   no NUL; when memory for the normalised text is short, the text as it stands is judged, less its last byte.
   StrictHttp: no verdict is stored here. A negative `length` is nothing to judge. The phrase filter must have been initialised (iniContentFilter) when
   contentcheck is on. */
NETSIFT_API int32_t checkAllRight(char *buffer, int32_t length, int32_t first);

/* 1 when `port` is in blockedports, whose first 0 or hundredth entry ends it, else 0. */
NETSIFT_API int32_t isBlockedPort(int32_t port);

NETSIFT_END

#endif
