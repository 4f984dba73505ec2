/* The relay process: it holds the tunnels of a generation's connections, moves their bytes, and parses nothing. A tunnel
   that is idle is a record of some hundred bytes; buffers exist only while a side does not take what the other has
   sent. The end of one direction is passed on, and the other goes on. */
#ifndef NETSIFT_HOST_TUNNELRELAY_H
#define NETSIFT_HOST_TUNNELRELAY_H

#include <atomic>
#include <cstdint>

namespace netsift::host {

/* Takes tunnels from `offers` and relays them, counting those it holds in `count`, until no worker is left that could
   offer one and the last has ended; then ends the process. Each tunnel leaves a log line when it ends. */
[[noreturn]] void relayTunnels(int offers, std::atomic<int32_t> &count);

/* How many it can hold, at two descriptors each. */
int32_t mostTunnels();

}  // namespace netsift::host

#endif
