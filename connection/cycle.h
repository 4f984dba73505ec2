/* The connection cycle's own records and its runner: what lasts a connection, what lasts a cycle, the steps that a
   cycle is made of, and the road that says which. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_CYCLE_H
#define NETSIFT_CONNECTION_CYCLE_H

#include <netdb.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "http/strictFraming.h"
#include "http/strictTarget.h"
#include "state/results.h"
#include "util/ownedText.h"

namespace netsift {

constexpr int clientTimeoutSeconds = 10;    /* every read of a request, every send to the client but for the next: */
constexpr int newClientMilliseconds = 1000; /* StrictHttp: for a first byte, before a client counts as an idle one */
/* StrictHttp: a body, to a player whose buffer is full or a paused download; and what bounds each write to a client. */
constexpr int patientSeconds = 300;
constexpr int relayIdleSeconds = 100; /* relays end after this long without traffic */
constexpr int noTimeout = -1;

/* What connectionHandle returns. */
constexpr int32_t callEnded = NETSIFT_CONNECTION_ENDED, callTunneled = NETSIFT_CONNECTION_TUNNELED,
                  callFailed = NETSIFT_CONNECTION_FAILED, callLeft = NETSIFT_CONNECTION_CLIENT_LEFT;

struct FileCloser {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

struct Road;

/* The two sockets of a connection. */
struct Ends {
  int client = -1;
  int upstream = -1;
};

/* StrictHttp: one that requests of this connection went to, and the socket that is kept to it. */
struct Upstream {
  std::string host; /* none of the upstream proxy */
  unsigned port = 0;
  bool isHttp10 = false;                            /* it has answered so */
  bool isPersonal = false;                          /* a login was sent on it or asked for */
  std::chrono::steady_clock::time_point lastUsed{}; /* when it had answered a request to its end */
  int fd = -1;                                      /* of an earlier cycle, and of this one once it is connected */
};

/* What a host that is an address resolves to, and the URL as that name would have it; empty for none. */
struct ReverseName {
  std::string host, url;
};

/* Lives for the whole call of connectionHandle. */
struct Connection {
  const Road &road;
  Ends ends;
  int8_t connectAttempts = 0;       /* shared by every connect of the call, never reset */
  bool upstreamUnavailable = false; /* the attempts have reached 5; never cleared */
  bool stop = false;                /* the next cycle ends the call with lastStatus */
  int8_t lastStatus = 1;            /* of the last completed body: 1 good, -1 failed; 1 before any */
  int32_t result = 0;               /* what the call returns once a step says Next::end */

  /* The contract's road. */
  uint32_t scanThreshold = 0; /* bytes collected before the next scan; doubled by every scan */
  uint32_t receivedTotal = 0; /* body bytes read from upstream over all cycles, modulo 2^32 */
  bool alreadyCached = false; /* an infected verdict has been stored */
  size_t bufferUsed = 0;      /* the most of `httpbody` that a body of this call has filled */
  ReverseName reverse;        /* the last one found, which the blacklists are asked for ever after; StrictHttp: of this
                                 request */

  uint8_t configuredBlockip = 0, configuredUrlcheck = 0; /* StrictHttp: as the host set them */
  std::string resolvedAddress;                           /* StrictHttp: the host whose name was looked up last, */
  hostent *resolvedEntry = nullptr;                      /* and what was found */
  bool used = false;                                     /* StrictHttp: a request has come */
  std::array<Upstream, 4> upstreams; /* clients that send one proxy requests for several sites go back and forth */
  size_t current = 0;                /* in it: to whom ends.upstream leads */
  bool inTunnel = false;             /* StrictHttp: that is the site at the end of a CONNECT's, and a request to it that
                                        came through there is in reqheader */
  bool sendsChunks = false;          /* the response goes to the client in chunks */
};

/* What is asked for. The texts live to the end of the cycle, whatever becomes of the interface's copies of them, which
   publishRequest makes. */
struct Request {
  std::string url;      /* normalised: host and path, no scheme, no port */
  std::string hostname; /* as the lists know it */
  std::string method;
  std::vector<std::string> readings; /* StrictHttp: `url` as servers may read it, where that differs */
  unsigned port = 0;
  bool isAddress = false, isHead = false, isConnect = false, hasQuery = false;
};

/* Lives for one request and its response. */
struct Cycle {
  Request request;
  bool isAdServer = false, isWhite = false, isPopupSite = false;
  int32_t requestLength = 0; /* of the request's body */
  bool requestHasLength = false;

  /* StrictHttp: the request. */
  StrictTarget target;          /* what the request line addresses */
  uint64_t bodyLength = 0;      /* of the request */
  bool bodyIsChunked = false;   /* then that is not known */
  bool bodyWasSent = false;     /* some body went upstream */
  unsigned interimHeads = 0;    /* that came for it */
  bool bodyUnsent = false;      /* upstream stopped taking the body; its answer ends the connection */
  bool expectsContinue = false; /* the client holds its body back until it is asked for it */
  bool asksToSwitch = false;    /* the client offers to go on in another protocol */
  bool usesUpstream = false;    /* the upstream socket is this cycle's */
  bool upstreamReused = false;  /* the request went out on an earlier cycle's socket */
  File requestSpool;            /* its body, where that was collected before it is sent */
  std::string requestTrailers;  /* behind it */

  Text contentType, date; /* of the response; date is what dateAndTime1 points to */
  int responseCode = 0;
  int32_t responseLength = 0; /* Content-Length as first read */
  int32_t contentLength = 0;  /* and as read again after the head was examined */
  bool connectionCloses = false;
  bool cacheEligible = false;
  bool skipScan = false;
  bool isChunked = false, hasLength = false, addPopup = false;

  /* StrictHttp: the response. */
  ResponseFraming framing;
  bool isExempt = false;         /* it passes unexamined */
  bool isKnownClean = false;     /* since the cache says that it is clean */
  bool responseBegun = false;    /* its head is with the client: an answer in its place would be taken for its body */
  bool responseComplete = false; /* nothing of it is left on the upstream socket */
};

/* What follows a step: the next step, the next cycle, or the end of the call with connection.result. */
enum class Next { step, cycle, end };

struct Step {
  const char *name;
  Next (*run)(Connection &, Cycle &);
};

/* How requests and responses are read, framed and released: chosen once per call. The steps stand in their order, which
   is the policy's order; what is the same on both roads is one step in both tables. */
struct Road {
  const char *name;
  std::span<const Step> requestSteps, responseSteps;
  void (*begin)(Connection &);             /* before the first cycle */
  void (*endCycle)(Connection &, Cycle &); /* after each, however it ended */
  void (*end)(Connection &);               /* after the last */
};

/* The contract's road, and that of RFC 9110 and 9112, which StrictHttp chooses. */
extern const Road contractRoad, strictRoad;

inline Next endCall(Connection &connection, int32_t result) {
  connection.result = result;
  return Next::end;
}

/* Null prints as nothing. */
inline const char *printable(const char *text) { return text == nullptr ? "" : text; }

}  // namespace netsift

#endif
