#include "connection/connection_trickle.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "connection/cycle.h"
#include "connection/describeRequest.h"
#include "connection/publish.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "state/connection.h"
#include "state/observer.h"
#include "state/settings.h"
#include "state/strict.h"

namespace netsift {
namespace {

void setUpConnection(Connection &connection) {
  connection.ends.client = clientsock;
  const bool isNamed = strictHttp() && clientaddr.sin_family == AF_INET6; /* the host has written clientip */
  if (!isNamed) inet_ntop(AF_INET, &clientaddr.sin_addr, clientip, sizeof clientip);
  dprintf(4, "Client IP is [%s]\n", clientip);
  const int on = 1; /* a head and the body behind it are separate sends; neither is to wait for the other's receipt */
  setsockopt(clientsock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  connection.scanThreshold = static_cast<uint32_t>(startScanSize) * 1024U;
  connection.road.begin(connection);
}

/* Runs the steps in their order until one of them says that the cycle or the call is over. */
Next runSteps(std::span<const Step> steps, Connection &connection, Cycle &cycle) {
  for (const Step &step : steps) {
    const Next next = step.run(connection, cycle);
    if (netsift_observer != nullptr) netsift_observer->stepped(step.name, next == Next::step);
    if (next == Next::step) continue;
    dprintf(7, "%s cycle left at step %s\n", connection.road.name, step.name);
    return next;
  }
  return Next::step;
}

Next runCycle(Connection &connection) {
  if (connection.stop) return endCall(connection, connection.lastStatus);
  const Road &road = connection.road;
  Cycle cycle;
  Next next = runSteps(road.requestSteps, connection, cycle);
  if (next == Next::step) next = runSteps(road.responseSteps, connection, cycle);
  describeRequest(cycle);
  endRecord();
  road.endCycle(connection, cycle);
  retractCycle(cycle);
  return next;
}

}  // namespace
}  // namespace netsift

int32_t connectionHandle(void) {
  netsift::Connection connection{netsift::strictHttp() ? netsift::strictRoad : netsift::contractRoad};
  netsift::setUpConnection(connection);
  while (netsift::runCycle(connection) != netsift::Next::end) {
  }
  connection.road.end(connection);
  return connection.result;
}
