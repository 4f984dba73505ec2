/* The debug log as the library's own code has it: a message whose level is off costs one comparison and evaluates no
   argument. */
#ifndef NETSIFT_LOG_DEBUGLOG_H
#define NETSIFT_LOG_DEBUGLOG_H

#include "log/hostLog.h"

/* The level when a stream is open, else below every level: what the one comparison is made against. */
extern "C" __attribute__((visibility("hidden"))) int netsift_debugThreshold;

#undef dprintf
#define dprintf(level, ...) \
  (static_cast<signed char>(level) <= netsift_debugThreshold ? netsift_dprintf(level, __VA_ARGS__) : 0)

#endif
