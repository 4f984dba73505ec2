#include "http/peerSocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace netsift {

int openPeerSocket(int family, int flags) {
  const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  const int on = 1;
  if (fd >= 0) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

bool isQuiet(int fd) { return waitReadable(fd, 0) == Wait::timedOut; }

void boundSends(int fd, int seconds) {
  const timeval limit{seconds < 0 ? 0 : seconds, 0}; /* 0: without limit */
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool isClosedByPeer(int fd) {
  char byte;
  const ssize_t count = recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

}  // namespace netsift
