#include "scan/relay.h"

#include <poll.h>
#include <unistd.h>

#include <ctime>

#include "http/socket.h"
#include "log/peerText.h"
#include "state/connection.h"

namespace netsift {

void countClientTurn(Turns &turns) {
  if (turns.clientTurn) turns.client++;
  turns.clientTurn = false;
  turns.proxyTurn = true;
}

void countProxyTurn(Turns &turns) {
  if (turns.proxyTurn) turns.proxy++;
  turns.proxyTurn = false;
  turns.clientTurn = true;
}

Readiness waitForEither(const Relay &relay) {
  pollfd sides[] = {{relay.client, POLLIN, 0}, {relay.upstream, POLLIN, 0}};
  const timespec limit{relay.timeoutSeconds, 0};
  if (relay.client < 0 || relay.upstream < 0) return {{-1, EBADF}, false, false};  // poll would pass them over

  errno = 0;
  const int status = ppoll(sides, 2, relay.timeoutSeconds < 0 ? nullptr : &limit, nullptr);
  if (status <= 0) return {{status, errno}, false, false};
  if (((sides[0].revents | sides[1].revents) & POLLNVAL) != 0) return {{-1, EBADF}, false, false};
  return {{status, 0}, sides[0].revents != 0, sides[1].revents != 0};
}

Outcome readBlock(int fd, Relay &relay) {
  const ssize_t size = read(fd, relay.block, sizeof relay.block);
  return {size, errno};
}

Pass afterRead(const Outcome &read) {
  if (read.result > 0) return Pass::goOn;
  return read.result < 0 && read.error == EINTR ? Pass::again : Pass::end;
}

Pass forwardBlock(int fd, const Relay &relay, ssize_t size) {
  const int result = sendToSocket(fd, relay.block, static_cast<int>(size), relay.timeoutSeconds);
  return result == 0 ? Pass::goOn : Pass::end;
}

void logUpstreamRead(const Outcome &read) {
  dprintf(1, "CLIENT IP:%s,URL:%s,SIZE=%d\n", clientip, peerText(url), static_cast<int>(read.result));
}

}  // namespace netsift
