#include "scan/relay.h"

#include <unistd.h>

#include <chrono>

#include "http/socket.h"
#include "http/wait.h"
#include "log/peerText.h"
#include "state/connection.h"
#include "state/strict.h"

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
  const std::chrono::seconds limit(relay.timeoutSeconds < 0 ? -1 : relay.timeoutSeconds);
  if (strictHttp()) errno = 0;
  const int status = waitOnce(sides, limit);
  return {{status, errno}, status > 0 && sides[0].revents != 0, status > 0 && sides[1].revents != 0};
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
