/* One client connection. */
#ifndef NETSIFT_HOST_CHILD_H
#define NETSIFT_HOST_CHILD_H

#include "util/socketAddress.h"

namespace netsift::host {

/* Serves a connection as the access rules say, removes its scan file and closes its socket. The process can serve no
   other until netsift_resetState. */
void serveConnection(int sock, const SocketAddress &peer);

/* Closes a connection so that the client still reads what was sent: the write side first, then what the client is
   still sending is taken, at most 64 KiB and for at most 2 seconds, since closing over unread bytes would reset the
   connection. */
void closeGently(int sock);

}  // namespace netsift::host

#endif
