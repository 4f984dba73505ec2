/* Connections to the local daemons whose sockets lie at fixed paths: the scan engines and the host. */
#ifndef NETSIFT_UTIL_UNIXSOCKET_H
#define NETSIFT_UTIL_UNIXSOCKET_H

#include <string_view>

namespace netsift {

/* A stream socket of the Unix domain, closed on exec; -1 with errno on failure. */
int unixSocket();

/* Connects `fd` to the socket at a fixed path, behind installroot: 0, or -1 with errno. A path that does not fit an
   address's 107 bytes under a long installroot fails like a missing socket (ENOENT). */
int connectUnixSocket(int fd, const char *path);

/* Writes all of `bytes`, however many writes it takes; false with errno when one fails or takes nothing. A peer that
   has gone is a failed write, never a signal. */
bool writeAll(int fd, std::string_view bytes);

}  // namespace netsift

#endif
