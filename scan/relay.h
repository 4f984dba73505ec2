/* What the relays between client and upstream are made of: the loop, the wait, the turn counters. */
#ifndef NETSIFT_SCAN_RELAY_H
#define NETSIFT_SCAN_RELAY_H

#include <sys/types.h>

#include <cerrno>
#include <cstdint>

#include "log/debugLog.h"

namespace netsift {

constexpr int relayBlockSize = 8192;

/* How often the talk changed sides: consecutive reads from one side count once. */
struct Turns {
  int32_t client = 0, proxy = 0;
  bool clientTurn = true, proxyTurn = true;
};
void countClientTurn(Turns &turns);
void countProxyTurn(Turns &turns);

/* One relay, for one call. The sockets belong to the caller; the block serves both directions. */
struct Relay {
  int client, upstream;
  int timeoutSeconds;   /* of every wait and every send; negative: none */
  const char *waitName; /* who is waiting, in the trace of each wait; null: none */
  Turns turns;
  char block[relayBlockSize];
};

/* What follows a step of a pass: the next step, the next pass, or the end of the relay. */
enum class Pass { goOn, again, end };

/* The outcome of a wait or a read, with the errno of that moment: tracing comes before anyone looks at it. */
struct Outcome {
  ssize_t result;
  int error;
};

struct Readiness {
  Outcome wait; /* the number of readable sockets, 0 on a time-out, -1 on a failure */
  bool client, upstream;
};

/* Waits until either side can be read or has closed. The error of a time-out is what errno held before: an interruption
   long past prolongs a relay whose peers are silent, wait by wait. With StrictHttp it is 0. Any descriptor number will
   do. */
Readiness waitForEither(const Relay &relay);

/* Reads what there is, at most a block. */
Outcome readBlock(int fd, Relay &relay);

/* End on a close or failure, again when interrupted, go on when there are bytes. */
Pass afterRead(const Outcome &read);

/* Sends the block's first bytes, all of them; goes on or ends. */
Pass forwardBlock(int fd, const Relay &relay, ssize_t size);

/* The line that every read from upstream leaves at level 1, closes and failures included. */
void logUpstreamRead(const Outcome &read);

/* Relays until a step ends it or the wait fails or times out. Each pass asks `finished` (bool), waits, and takes the
   readable sides in order, `fromClient` and `fromUpstream` (Pass); a side's `again` skips the rest of the pass. Returns
   true when it was `finished` that ended the relay. */
template <typename Finished, typename FromClient, typename FromUpstream>
bool relayLoop(Relay &relay, Finished finished, FromClient fromClient, FromUpstream fromUpstream) {
  while (!finished()) {
    const Readiness ready = waitForEither(relay);
    if (relay.waitName != nullptr) {
      dprintf(7, "%d:%s=> Inside %s and status is = %ld\n", __LINE__, __func__, relay.waitName, ready.wait.result);
    }
    Pass pass = Pass::goOn;
    if (ready.wait.result <= 0) pass = ready.wait.error == EINTR ? Pass::again : Pass::end;
    if (pass == Pass::goOn && ready.client) pass = fromClient();
    if (pass == Pass::goOn && ready.upstream) pass = fromUpstream();
    if (pass == Pass::end) return false;
  }
  return true;
}

}  // namespace netsift

#endif
