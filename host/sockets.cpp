#include "host/sockets.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace netsift::host {

namespace {

constexpr int waitingClients = 1024; /* the backlog: those beyond max_connections wait in it */
constexpr int waitingMessages = 128;

struct sockaddr_un localAddress(const std::string &path) {
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

int closeWith(int sock, int error) {
  close(sock);
  errno = error;
  return -1;
}

}  // namespace

int listenOn(const SocketAddress &address) {
  int sock = socket(address.any.sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (sock < 0) return -1;
  int on = 1;
  setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  /* inherited by the accepted sockets: an answer goes out in several small sends */
  setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (isSix(address)) setsockopt(sock, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  if (bind(sock, &address.any, sizeOf(address)) != 0 || listen(sock, waitingClients) != 0)
    return closeWith(sock, errno);
  return sock;
}

std::string boundAddress(int sock) {
  SocketAddress address{};
  socklen_t length = sizeof address;
  getsockname(sock, &address.any, &length);
  return endpointText(address);
}

bool fitsSocketPath(const std::string &path) { return path.size() < sizeof(sockaddr_un::sun_path); }

int connectLocal(const std::string &path) {
  if (!fitsSocketPath(path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (sock < 0) return -1;
  struct timeval limit {
    1, 0
  }; /* one that no longer takes connections would be waited for without end */
  setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  struct sockaddr_un address = localAddress(path);
  if (connect(sock, reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0) return closeWith(sock, errno);
  return sock;
}

int listenLocal(const std::string &path) {
  int other = connectLocal(path);
  if (other >= 0) return closeWith(other, EADDRINUSE);
  if (errno == EAGAIN) errno = EADDRINUSE; /* it listens, and takes no connections */
  if (errno == ENAMETOOLONG || errno == EADDRINUSE) return -1;
  struct stat status;
  if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) unlink(path.c_str());

  int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (sock < 0) return -1;
  struct sockaddr_un address = localAddress(path);
  mode_t before = umask(0117);
  int bound = bind(sock, reinterpret_cast<struct sockaddr *>(&address), sizeof address);
  umask(before);
  if (bound != 0 || listen(sock, waitingMessages) != 0) return closeWith(sock, errno);
  return sock;
}

int fillDescriptors() {
  constexpr int most = 1024;
  struct pollfd each[most];
  int count = std::min(most, getdtablesize());
  for (int fd = 0; fd < count; fd++) each[fd] = {fd, 0, 0};
  poll(each, static_cast<nfds_t>(count), 0);
  int highest = count - 1;
  while (highest > 0 && (each[highest].revents & POLLNVAL) != 0) highest--;
  int fd;
  while ((fd = fcntl(highest, F_DUPFD_CLOEXEC, 0)) >= 0 && fd < highest) continue;
  if (fd >= 0) close(fd);
  return highest + 1;
}

}  // namespace netsift::host
