/* Sockets to a peer: opened, connected within a time, looked at before they are used again. Internal to the library. */
#ifndef NETSIFT_HTTP_PEERSOCKET_H
#define NETSIFT_HTTP_PEERSOCKET_H

#include <sys/socket.h>

#include "http/wait.h"

namespace netsift {

/* A stream socket whose small writes go out at once, since a head and the body behind it are separate sends; with
   SOCK_NONBLOCK or the like in `flags`. -1 when there is none to be had. */
int openPeerSocket(int family = AF_INET, int flags = 0);

/* Still open, and nothing waiting that would be taken for the next response. */
bool isQuiet(int fd);

/* A write that waits in the kernel gives up after so long; without this a peer that stops reading holds it for ever. */
void boundSends(int fd, int seconds);

/* Whether the socket's peer has closed or reset it and nothing waits to be read. */
bool isClosedByPeer(int fd);

}  // namespace netsift

#endif
