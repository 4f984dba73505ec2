/* How many connections each client has at once, counted in memory that the workers of a generation share. */
#ifndef NETSIFT_HOST_CLIENTCOUNT_H
#define NETSIFT_HOST_CLIENTCOUNT_H

#include <netinet/in.h>

#include <cstdint>

#include "host/pool.h"

namespace netsift::host {

/* Counts a connection of the client's in the slot of the worker that serves it. False when it has more now than
   max_connections_per_client; uncountClient follows in either case. */
bool countClient(const Pool &pool, WorkerSlot &slot, const struct sockaddr_in &peer);

/* The connection has ended, or its worker has; nothing is done for a slot that counts none. */
void uncountClient(const Pool &pool, WorkerSlot &slot);

/* Answers a client that has too many, without waiting for what it asks. */
void turnAway(const Pool &pool, int sock, const struct sockaddr_in &peer);

/* At most once a minute, how many connections were turned away and whose the last was. */
void tellTurnedAway(Pool &pool, int64_t now);

}  // namespace netsift::host

#endif
