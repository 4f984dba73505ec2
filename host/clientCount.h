/* How many connections each client has at once, counted in memory that the workers of a generation share. */
#ifndef NETSIFT_HOST_CLIENTCOUNT_H
#define NETSIFT_HOST_CLIENTCOUNT_H

#include <cstdint>
#include <span>

#include "host/pool.h"
#include "util/socketAddress.h"

namespace netsift::host {

/* Learns the IPv6 networks that this machine is in. */
void learnNeighbours();

/* Whose connection it is, never 0: an IPv4 address; of an IPv6 address the first 64 bits, since whoever has a network of
   that size has as many addresses as he likes. In `neighbours`, which are networks of so many bits on this machine's
   wires, the whole address, since there those bits are what everybody has in common. */
uint64_t clientKey(const SocketAddress &peer, std::span<const uint64_t> neighbours);

/* Counts a connection of the client's in the slot of the worker that serves it. False when it has more now than
   max_connections_per_client; uncountClient follows in either case. */
bool countClient(const Pool &pool, WorkerSlot &slot, const SocketAddress &peer);

/* The connection has ended, or its worker has; nothing is done for a slot that counts none. */
void uncountClient(const Pool &pool, WorkerSlot &slot);

/* Answers a client that has too many, without waiting for what it asks. */
void turnAway(const Pool &pool, int sock, const SocketAddress &peer);

/* At most once a minute, how many connections were turned away and whose the last was. */
void tellTurnedAway(Pool &pool, int64_t now);

}  // namespace netsift::host

#endif
