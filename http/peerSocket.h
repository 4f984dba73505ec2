/* Sockets to a peer: opened, connected within a time, looked at before they are used again. Internal to the library. */
#ifndef NETSIFT_HTTP_PEERSOCKET_H
#define NETSIFT_HTTP_PEERSOCKET_H

#include <netinet/in.h>

#include "http/wait.h"

namespace netsift {

/* A stream socket whose small writes go out at once, since a head and the body behind it are separate sends; -1 when
   there is none to be had. */
int openPeerSocket();

/* A connect that waits no longer than this, negative: without limit, while `client` is watched for having left. Unless
   it is `ready` errno says what failed. */
Wait connectWithin(int fd, const sockaddr_in &address, int milliseconds, int client);

/* Still open, and nothing waiting that would be taken for the next response. */
bool isQuiet(int fd);

/* A write that waits in the kernel gives up after so long; without this a peer that stops reading holds it for ever. */
void boundSends(int fd, int seconds);

/* Whether the socket's peer has closed or reset it and nothing waits to be read. */
bool isClosedByPeer(int fd);

}  // namespace netsift

#endif
