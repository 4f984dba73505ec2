#include "connection/connection_trickle.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "connection/cycle.h"
#include "connection/requestSide.h"
#include "connection/responseSide.h"
#include "connection/scanSpool.h"
#include "connection/strictResponse.h"
#include "connection/upstream.h"
#include "log/debugLog.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

void setUpConnection(Connection &connection) {
  inet_ntop(AF_INET, &clientaddr.sin_addr, clientip, sizeof clientip);
  dprintf(4, "Client IP is [%s]\n", clientip);
  const int on = 1; /* a head and the body behind it are separate sends; neither is to wait for the other's receipt */
  setsockopt(clientsock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  connection.configuredBlockip = blockip;
  connection.configuredUrlcheck = urlcheck;
  if (isStrict()) boundSends(clientsock, patientSeconds);
  connection.scanThreshold = static_cast<uint32_t>(startScanSize) * 1024U;
  if (ProxyPresent == 1) connectToProxy(connection);
}

Next runCycle(Connection &connection) {
  if (connection.stop) return endCall(connection, connection.lastStatus);
  Cycle cycle;
  Next next = runSteps(requestSteps(), connection, cycle);
  if (next == Next::step) {
    next = runSteps(isStrict() ? strictResponseSteps() : responseSteps(), connection, cycle);
  }
  if (isStrict() && !cycle.responseComplete) strictDisconnect(connection);
  if (dateAndTime1 != nullptr && dateAndTime1 == cycle.date.get()) dateAndTime1 = nullptr;
  return next;
}

}  // namespace

Next runSteps(std::span<const Step> steps, Connection &connection, Cycle &cycle) {
  for (const Step &step : steps) {
    const Next next = step.run(connection, cycle);
    if (next == Next::step) continue;
    dprintf(7, "cycle left at step %s\n", step.name);
    return next;
  }
  return Next::step;
}

}  // namespace netsift

int32_t connectionHandle(void) {
  netsift::Connection connection;
  netsift::setUpConnection(connection);
  while (netsift::runCycle(connection) != netsift::Next::end) {
  }
  netsift::removeSpool();
  return connection.result;
}
