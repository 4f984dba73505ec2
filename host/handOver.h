/* How a worker gives a tunnel to the relay process: a message with what is known of it and its two sockets. */
#ifndef NETSIFT_HOST_HANDOVER_H
#define NETSIFT_HOST_HANDOVER_H

#include <cstdint>

#include "host/pool.h"
#include "log/requestLog.h"

namespace netsift::host {

constexpr size_t longestTunnelText = 700; /* "Client IP:...,URL:...", cut */

struct TunnelOffer {
  int32_t idleSeconds;
  uint32_t number;                                      /* of the connection, for the log */
  char text[longestTunnelText + NETSIFT_PACKED_RECORD]; /* as log lines have it, with its terminator; then the packed
                                                            record, with which the message ends */
};

/* From now on this worker's tunnels go to the relay process behind `sock`, while all generations together hold fewer
   than max_tunnels. */
void handOverTunnels(int sock, const Board *board);

/* The number that the next connection's tunnel has in the log. */
void numberTunnel(uint32_t number);

/* Whether the connection that was served has become a tunnel elsewhere: its sockets are only to be closed. */
bool wasHandedOver();

}  // namespace netsift::host

#endif
