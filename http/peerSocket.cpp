#include "http/peerSocket.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace netsift {

int openPeerSocket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  if (fd >= 0) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

Wait connectWithin(int fd, const sockaddr_in &address, int milliseconds, int client) {
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  Wait wait = Wait::ready;
  int error = 0;
  if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) error = errno;
  if (error == EINPROGRESS) {
    socklen_t size = sizeof error;
    wait = waitWritable(fd, milliseconds, client);
    if (wait == Wait::ready) getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    if (wait == Wait::timedOut) error = ETIMEDOUT;
  }
  fcntl(fd, F_SETFL, flags);
  if (wait == Wait::ready && error != 0) wait = Wait::failed;
  errno = error;
  return wait;
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
