#include "connection/contract/connect.h"
#include "connection/contract/steps.h"
#include "connection/upstream.h"
#include "state/settings.h"

namespace netsift {
namespace {

void begin(Connection &connection) {
  if (ProxyPresent != 1) return;
  setProxyAddress();
  connectUpstream(connection);
}

/* The upstream socket stays open, and the interface's request as it is. */
void endCycle(Connection &, Cycle &) {}
void end(Connection &) {}

}  // namespace

const Road contractRoad{"contract", contractRequestSteps(), contractResponseSteps(), begin, endCycle, end};

}  // namespace netsift
