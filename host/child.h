/* One client connection, in a process of its own. */
#ifndef NETSIFT_HOST_CHILD_H
#define NETSIFT_HOST_CHILD_H

#include <netinet/in.h>

namespace netsift::host {

/* Serves a connection as the access list says and ends the process, without running destructors: with it go the
   upstream sockets. Called in a fresh fork that holds no descriptors but the socket and the logs. */
[[noreturn]] void serveConnection(int sock, const struct sockaddr_in &peer);

/* Closes a connection so that the client still reads what was sent: the write side first, then what the client is
   still sending is taken, at most 64 KiB and for at most 2 seconds, since closing over unread bytes would reset the
   connection. */
void closeGently(int sock);

}  // namespace netsift::host

#endif
