/* The life of a worker: it takes a client, serves the connection to its end, goes back to what it was, and takes the
   next. */
#ifndef NETSIFT_HOST_WORKER_H
#define NETSIFT_HOST_WORKER_H

#include <csignal>
#include <span>

#include "host/pool.h"

namespace netsift::host {

/* Wakes a worker that waits for a client, and no other. */
constexpr int wakeSignal = SIGUSR1;

/* Begins in a fresh fork that holds the listeners, the pool's descriptors, the logs and the three standard ones, and
   ends the process: after connections_per_process, when the pool is closed or renewed, or when it was told to leave. */
[[noreturn]] void work(std::span<const int> listeners, const Pool &pool, Board *board, int slot);

}  // namespace netsift::host

#endif
