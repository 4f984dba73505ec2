/* The sockets that the daemon opens, and its other descriptors. All are closed on exec; failures leave errno. */
#ifndef NETSIFT_HOST_SOCKETS_H
#define NETSIFT_HOST_SOCKETS_H

#include <string>

#include "util/socketAddress.h"

namespace netsift::host {

/* A non-blocking listener; -1 when it cannot be had. One on an IPv6 address takes no IPv4 clients, so that [::]:8080
   and 0.0.0.0:8080 stand side by side. */
int listenOn(const SocketAddress &address);

/* The address that a socket is bound to, as "127.0.0.1:8080" or "[::1]:8080". */
std::string boundAddress(int sock);

/* Whether a path fits a Unix socket's address. */
bool fitsSocketPath(const std::string &path);

/* A connection to a Unix stream socket; -1 when nobody listens there. */
int connectLocal(const std::string &path);

/* A non-blocking listener at a path, which only the process's user and group may connect to (mode 0660). A socket file
   that nobody listens on any more is replaced; one that somebody does fails with EADDRINUSE. -1 on failure. */
int listenLocal(const std::string &path);

/* Fills the gaps below the highest open descriptor with copies of it, so that every one opened from now on
   has a higher number. Returns the lowest of these. */
int fillDescriptors();

}  // namespace netsift::host

#endif
