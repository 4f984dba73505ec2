/* The leveled debug log: one shared stream, a line at a time, each with a time-and-process prefix. */
#ifndef NETSIFT_HTTP_DEBUGLOG_H
#define NETSIFT_HTTP_DEBUGLOG_H

#include <stdint.h>
#include <stdio.h>

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int dInitialise(const char *path, int8_t level, const char *debugString, uint8_t printPid,
                            uint8_t printTime);
NETSIFT_API int dFileOpen(const char *path);
NETSIFT_API void dFileStreamSet(FILE *stream);
NETSIFT_API int dFileClose(void);
NETSIFT_API int setDebugLevel(int level);
NETSIFT_API void setDebugString(const char *text);
NETSIFT_API char *getDebugString(void);
NETSIFT_API void printPID(void);
NETSIFT_API void skipPID(void);
NETSIFT_API void printTime(void);
NETSIFT_API void skipTime(void);

NETSIFT_API int netsift_dprintf(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

NETSIFT_END

/* <stdio.h> has a dprintf of another meaning, which a fortified build inlines; from here on the name is the log's.
   Inside the library a message whose level is off costs one comparison and evaluates no argument. */
#ifdef NETSIFT_LIBRARY
/* The level when a stream is open, else below every level: what the one comparison is made against. Hidden. */
extern "C" int netsift_debugThreshold;
#define dprintf(level, ...) \
  (static_cast<signed char>(level) <= netsift_debugThreshold ? netsift_dprintf(level, __VA_ARGS__) : 0)
#else
#define dprintf netsift_dprintf
#endif

#endif
