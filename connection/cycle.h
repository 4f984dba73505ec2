/* The connection cycle's own records and its runner: what lasts a connection, what lasts a cycle, and the steps that a
   cycle is made of. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_CYCLE_H
#define NETSIFT_CONNECTION_CYCLE_H

#include <cstdint>
#include <span>
#include <string>

#include "http/strictFraming.h"
#include "http/strictTarget.h"
#include "state/settings.h"
#include "util/ownedText.h"

namespace netsift {

constexpr int clientTimeoutSeconds = 10; /* every read of a request, every send to the client but for the next: */
/* StrictHttp: a body, to a player whose buffer is full or a paused download; and what bounds each write to a client. */
constexpr int patientSeconds = 300;
constexpr int relayIdleSeconds = 100; /* relays end after this long without traffic */
constexpr int noTimeout = -1;

/* Lives for the whole call of connectionHandle. */
struct Connection {
  int8_t connectAttempts = 0;       /* shared by every connect of the call, never reset */
  bool upstreamUnavailable = false; /* the attempts have reached 5; never cleared */
  bool stop = false;                /* the next cycle ends the call with lastStatus */
  int8_t lastStatus = 1;            /* of the last completed body: 1 good, -1 failed; 1 before any */
  int32_t result = 0;               /* what the call returns once a step says Next::end */

  uint8_t configuredBlockip = 0, configuredUrlcheck = 0; /* as the host set them */

  uint32_t scanThreshold = 0; /* bytes collected before the next scan; doubled by every scan */
  uint32_t receivedTotal = 0; /* body bytes read from upstream over all cycles, modulo 2^32 */
  bool alreadyCached = false; /* an infected verdict has been stored */

  /* StrictHttp: whether proxysock may carry the next request, and in direct mode to whom it is connected. */
  bool upstreamOpen = false;
  bool upstreamUsed = false; /* it has carried a request */
  std::string upstreamHost;
  unsigned upstreamPort = 0;
};

/* Lives for one request and its response. */
struct Cycle {
  unsigned port = 0; /* the request's */
  bool isHead = false, isConnect = false, hasQuery = false;
  bool isAdServer = false, isWhite = false, isPopupSite = false;
  StrictTarget target;     /* StrictHttp: what the request line addresses */
  std::string resolvedUrl; /* StrictHttp: `url` as servers may read it, where that differs */
  int32_t requestLength = 0;
  bool requestHasLength = false;
  uint64_t bodyLength = 0;      /* StrictHttp: of the request */
  bool bodyUnsent = false;      /* StrictHttp: upstream stopped taking the body; its answer ends the connection */
  bool expectsContinue = false; /* StrictHttp: the client holds its body back until it is asked for it */
  bool asksToSwitch = false;    /* StrictHttp: the client offers to go on in another protocol */
  bool upstreamReused = false;  /* StrictHttp: the request went out on an earlier cycle's socket */

  Text contentType, date; /* of the response; date is what dateAndTime1 points to */
  int responseCode = 0;
  int32_t responseLength = 0; /* Content-Length as first read */
  int32_t contentLength = 0;  /* and as read again after the head was examined */
  bool connectionCloses = false;
  bool cacheEligible = false;
  bool skipScan = false;

  ResponseFraming framing;       /* StrictHttp */
  bool isExempt = false;         /* StrictHttp: the response passes unexamined */
  bool isKnownClean = false;     /* since the cache says that it is clean */
  bool responseComplete = false; /* nothing of the response is left on the upstream socket */
  bool isChunked = false, hasLength = false, addPopup = false;
  std::string urlCopy; /* for what is printed or stored after an answer freed `url` */
};

/* What follows a step: the next step, the next cycle, or the end of the call with connection.result. */
enum class Next { step, cycle, end };

struct Step {
  const char *name;
  Next (*run)(Connection &, Cycle &);
};

inline bool isStrict() { return (StrictHttp & STRICT_HTTP) != 0; }

inline Next endCall(Connection &connection, int32_t result) {
  connection.result = result;
  return Next::end;
}

/* Runs the steps in their order until one of them says that the cycle or the call is over. */
Next runSteps(std::span<const Step> steps, Connection &connection, Cycle &cycle);

/* Null prints as nothing. */
inline const char *printable(const char *text) { return text == nullptr ? "" : text; }

/* Replaces an owned process-wide text. */
inline void replaceText(char *&slot, char *text) {
  std::free(slot);
  slot = text;
}

}  // namespace netsift

#endif
