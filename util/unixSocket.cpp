#include "util/unixSocket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "util/installPath.h"

namespace netsift {

int unixSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

int connectUnixSocket(int fd, const char *path) {
  const Text full = installPath({path});
  sockaddr_un address{};
  const size_t length = full ? std::strlen(full.get()) : sizeof address.sun_path;
  if (length >= sizeof address.sun_path) {
    errno = ENOENT;
    return -1;
  }

  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, full.get(), length);
  const auto addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  return connect(fd, reinterpret_cast<const sockaddr *>(&address), addressLength);
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace netsift
