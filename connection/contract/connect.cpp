#include "connection/contract/connect.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "connection/publish.h"
#include "http/peerSocket.h"
#include "log/debugLog.h"
#include "state/connection.h"
#include "state/observer.h"

namespace netsift {
namespace {

constexpr int8_t maximumAttempts = 5;
constexpr useconds_t retryMicroseconds = 1000;

}  // namespace

/* The test after the loop looks at the count alone: a sixth attempt that succeeds still marks the upstream unavailable,
   and from then on every connect of the call makes a single attempt. */
void connectUpstream(Connection &connection) {
  if (netsift_observer != nullptr) return publishUpstream(connection, netsift_observer->connected());
  const int fd = openPeerSocket();
  publishUpstream(connection, fd);
  while (connect(fd, reinterpret_cast<const sockaddr *>(&proxyaddr), sizeof proxyaddr) != 0) {
    if (connection.connectAttempts >= maximumAttempts) break;
    const int error = errno;
    usleep(retryMicroseconds);
    connection.connectAttempts++;
    dprintf(4, "error opening connection to proxy ::%s\n", strerror(error));
  }
  if (connection.connectAttempts != maximumAttempts) return;
  dprintf(1, "upstream is unavailable after %d attempts\n", connection.connectAttempts);
  connection.upstreamUnavailable = true;
}

}  // namespace netsift
