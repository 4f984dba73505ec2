/* The process that answers whoever asks for the figures. It shares memory with those that count, and nothing else. */
#ifndef NETSIFT_HOST_METRICSSERVER_H
#define NETSIFT_HOST_METRICSSERVER_H

#include <sys/types.h>

#include "host/pool.h"

namespace netsift::host {

/* Answers GET /metrics and GET /health on a listener until its parent ends. A client that is slow keeps nobody from being
   answered, and is left after some seconds. */
[[noreturn]] void serveMetrics(int listener, const Board &board);

}  // namespace netsift::host

#endif
