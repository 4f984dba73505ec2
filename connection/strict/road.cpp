#include "connection/strict/connect.h"
#include "connection/strict/steps.h"
#include "connection/upstream.h"
#include "http/peerSocket.h"
#include "state/settings.h"

namespace netsift {
namespace {

void begin(Connection &connection) {
  connection.configuredBlockip = blockip;
  connection.configuredUrlcheck = urlcheck;
  boundSends(connection.ends.client, patientSeconds);
  if (ProxyPresent == 1) setProxyAddress();
}

/* What is left of an unfinished response would be taken for the next one. */
void endCycle(Connection &connection, Cycle &cycle) {
  if (!cycle.responseComplete) closeUpstream(connection);
}

}  // namespace

const Road strictRoad{"strict", strictRequestSteps(), strictResponseSteps(), begin, endCycle, closeOthers};

}  // namespace netsift
