/* What getHeader and the tests need of line reading beside http/socket.h. Internal to the library. */
#ifndef NETSIFT_HTTP_SOCKETLINE_H
#define NETSIFT_HTTP_SOCKETLINE_H

#include <cstddef>

namespace netsift {

/* Takes the lines up to and including the next empty one (CR LF) from a socket, if all of them have arrived and fit the
   window; never waits. Returns their size; 0 when nothing was taken, as always from what is no socket. */
size_t takeArrivedHead(int fd, char *window, size_t size);

/* getSocketLine without looking ahead: a system call a byte, for descriptors that are not sockets. On sockets, the
   measure that getSocketLine is held to. */
char *getSocketLineByBytes(int fd, unsigned *length, unsigned char *status, int limit);

}  // namespace netsift

#endif
