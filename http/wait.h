/* The one place that waits on descriptors. A wait is poll's, so that descriptor numbers above 1023 work. Internal to
   the library. */
#ifndef NETSIFT_HTTP_WAIT_H
#define NETSIFT_HTTP_WAIT_H

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <span>

namespace netsift {

enum class Wait { ready, timedOut, failed, clientLeft };

constexpr int nobody = -1; /* no client is watched */

/* Waits until the descriptor can be read or written, at the end of its stream too; for `milliseconds`, negative without
   limit. An interrupted wait is resumed with what is left of the time. `failed` leaves errno; a descriptor that is not
   open is EBADF.

   `client` is watched meanwhile for having left: both its ways are closed or reset, or it sends no more and
   halfClosedMilliseconds have passed in this wait. A client that has closed its sending side alone cannot be told from
   one that is gone before something is sent to it, and may be waiting for its answer. When `fd` is ready too, that is
   the answer. */
constexpr int64_t halfClosedMilliseconds = 10'000;
Wait waitReadable(int fd, int64_t milliseconds, int client = nobody);
Wait waitWritable(int fd, int64_t milliseconds, int client = nobody);

/* Whether both ways of the client are closed or reset; without waiting. */
bool hasLeft(int client);

/* The same over many short waits in which nothing is sent to the client: it has also left halfClosedMilliseconds after
   it was first seen to send no more. */
struct ClientWatch {
  int client = nobody;
  std::chrono::steady_clock::time_point endSeen{};
};
bool hasLeft(ClientWatch &watch);

/* A single wait, for which an interruption is an answer. As select's: the number of those that are ready (`revents` not
   0; closed and broken ones are), 0 when the time is over, -1 with errno, which is EBADF when one is not open. A
   negative limit is none. */
int waitOnce(std::span<pollfd> waited, std::chrono::nanoseconds limit);
int waitOnce(int fd, short events, std::chrono::nanoseconds limit);

}  // namespace netsift

#endif
