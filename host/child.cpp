#include "host/child.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "host/accessRules.h"
#include "host/clock.h"
#include "host/handOver.h"
#include "host/scanFiles.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr size_t mostDrained = 65536;
constexpr int64_t drainMilliseconds = 2000;
constexpr size_t longestHead = 65536;       /* of a refused client */
constexpr int64_t headMilliseconds = 10000; /* what such a client has for it in all, however it is sent */
enum Level { unfiltered = 1, filtered = 2 };

/* Waits for the end of a request head, or for more than a head has. False when neither came in time. */
bool awaitHead(std::string &head) {
  int64_t deadline = milliseconds() + headMilliseconds;
  while (head.size() < longestHead) {
    int64_t left = deadline - milliseconds();
    struct pollfd readable {
      clientsock, POLLIN, 0
    };
    if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0) return false;
    char block[8192];
    ssize_t count = recv(clientsock, block, sizeof block, MSG_DONTWAIT);
    if (count <= 0) return false;
    size_t from = head.size() < 2 ? 0 : head.size() - 2; /* the empty line may have begun in the piece before */
    head.append(block, static_cast<size_t>(count));
    if (head.find("\n\r\n", from) != head.npos || head.find("\n\n", from) != head.npos) return true;
  }
  return true;
}

void setClientIp(const SocketAddress &peer) { std::snprintf(clientip, sizeof clientip, "%s", hostText(peer).c_str()); }

/* `clientaddr` has no room for an IPv6 address: it tells the family, and the text is made here. */
void tellClient(const SocketAddress &peer) {
  clientaddr = isSix(peer) ? sockaddr_in{AF_INET6, 0, {}, {}} : peer.four;
  if (isSix(peer)) setClientIp(peer);
}

/* The client hears why, but only as the answer to a request: a browser drops what comes before it asked. Nothing that
   it sent is looked at beyond the method, and none of it is shown or logged. */
void refuseClient(const SocketAddress &peer, int level) {
  setClientIp(peer);
  std::string head;
  if (!awaitHead(head)) return;
  if (head.starts_with("HEAD ")) std::strcpy(request, "HEAD"); /* whose answer has no page */
  std::snprintf(reason, sizeof reason, "The computer %s may not use the web at this time.", clientip);
  dprintf(1, "Client IP:%s,STATUS:BLOCKED,Access List:level %d\n", clientip, level);
  sendError(clientsock);
  netsift_recordRefused(level);
}

}  // namespace

void closeGently(int sock) {
  shutdown(sock, SHUT_WR);
  int64_t deadline = milliseconds() + drainMilliseconds;
  for (size_t drained = 0; drained < mostDrained;) {
    int64_t left = deadline - milliseconds();
    struct pollfd readable {
      sock, POLLIN, 0
    };
    if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0) break;
    char block[8192];
    ssize_t count = recv(sock, block, sizeof block, MSG_DONTWAIT);
    if (count <= 0) break;
    drained += static_cast<size_t>(count);
  }
  close(sock);
}

void serveConnection(int sock, const SocketAddress &peer) {
  clientsock = sock;
  tellClient(peer);
  int level = accessLevel(peer);
  if (level == unfiltered) DisableNetsiftService = 1;
  if (level <= filtered)
    connectionHandle();
  else
    refuseClient(peer, level);
  removeScanFile(getpid());
  if (wasHandedOver())
    close(sock); /* shutting it down would end the tunnel */
  else
    closeGently(sock);
}

}  // namespace netsift::host
