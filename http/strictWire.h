/* StrictHttp's parsers fed from sockets: heads under one limit for the whole, bodies by their framing. */
#ifndef NETSIFT_HTTP_STRICTWIRE_H
#define NETSIFT_HTTP_STRICTWIRE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "http/strictChunk.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"
#include "http/wait.h"

namespace netsift {

enum class HeadRead { done, refused, timedOut, closed, clientLeft };

/* Reads one head into `header` and not a byte beyond it: its first byte within so many seconds, the whole of it within
   as many again; without limit when that is 0 or less. `refused` leaves the fault in `scan`. `client` is watched for
   having left meanwhile, if anybody is. */
HeadRead readStrictHead(int fd, HeadScan &scan, Header &header, int seconds, int client = nobody);

/* The same for one whose first byte, or the peer's end, has been waited for. */
HeadRead readBegunHead(int fd, HeadScan &scan, Header &header, int seconds, int client = nobody);

/* Waits for the first byte of a client's request, or its end, at most `idleSeconds`. Where `semaphore` is not 0 a client
   that has been silent for `graceMilliseconds` is shut down once there is one to take from it. False when nothing came. */
bool awaitRequest(int client, int idleSeconds, int semaphore, int graceMilliseconds);

/* A message body on its way in, its transfer coding taken off. */
struct BodySource {
  BodyKind kind = BodyKind::none;
  uint64_t remaining = 0; /* of a body with a length */
  ChunkDecoder chunks;
  bool exact = false;  /* the caller's to set: what follows the body stays on the socket */
  bool ended = false;  /* read to its end, by its own framing */
  bool broken = false; /* it turned out to be no body; nothing more is read of it */
  bool excess = false; /* bytes came that are no part of it: the connection carries no further message */
  bool hasMore = true; /* bytes are likely to have arrived that were not read yet */
  std::chrono::steady_clock::time_point deadline{}; /* the caller's to set: when waiting for it is over; none at 0 */
  std::array<char, 16384> raw;
  size_t rawStart = 0, rawEnd = 0;
};

/* Who is the next to say something, and what: the client's next bytes are there (or its end); or the upstream alone has
   something, an interim head or what is none; or the time is over. */
enum class Word { none, client, interim, answer };
Word awaitWord(int upstream, int client, int milliseconds);

/* Sends the whole of it; false when the peer is gone or takes nothing for so long. A wait comes only where there is no
   room. With MSG_MORE in `flags` it may stay back to go out with the next bytes, which are sent at once. */
bool sendWhole(int fd, std::string_view bytes, int seconds, int flags = 0);
bool sendWholeHead(int fd, const Header &header, int seconds, int flags = 0);

/* Ends a connection so that its peer sees a failure, not an end: by a reset, once the peer has received what was sent
   to it or after the time. */
void breakOff(int fd, int seconds);

void startBody(BodySource &source, const ResponseFraming &framing);

enum class BodyRead { piece, end, timedOut, broken, clientLeft };

/* Waits for more of a body; `piece` when there is some, or its end. `client` is watched as above. */
BodyRead awaitBody(int fd, int64_t waitMilliseconds, int client);

/* Reads what has arrived of the body, at least a byte and at most `room`, waiting up to `waitMilliseconds` (negative:
   without limit). `broken`: the peer broke off before the body's end, or sent what is no body. `client` is watched as
   above. */
BodyRead readBody(int fd, BodySource &source, char *out, size_t room, size_t &count, int waitMilliseconds,
                  int client = nobody);

}  // namespace netsift

#endif
