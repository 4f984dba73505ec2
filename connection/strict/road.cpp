#include <chrono>

#include "connection/strict/connect.h"
#include "connection/strict/keptUpstreams.h"
#include "connection/strict/steps.h"
#include "connection/upstream.h"
#include "http/peerSocket.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr int unauthorized = 401, proxyUnauthorized = 407;

void begin(Connection &connection) {
  connection.configuredBlockip = blockip;
  connection.configuredUrlcheck = urlcheck;
  boundSends(connection.ends.client, patientSeconds);
  if (ProxyPresent == 1) setProxyAddress();
  takeKept(connection);
}

/* What is left of an unfinished response would be taken for the next one. */
void endCycle(Connection &connection, Cycle &cycle) {
  if (!cycle.usesUpstream) return;
  if (!cycle.responseComplete) return closeUpstream(connection);
  Upstream &upstream = connection.upstreams[connection.current];
  /* A proxy that overlooked a body has another answer to come, which is nobody else's. */
  upstream.isPersonal |=
      cycle.bodyWasSent || cycle.responseCode == unauthorized || cycle.responseCode == proxyUnauthorized;
  upstream.lastUsed = std::chrono::steady_clock::now();
}

}  // namespace

const Road strictRoad{"strict", strictRequestSteps(), strictResponseSteps(), begin, endCycle, keepUpstreams};

}  // namespace netsift
