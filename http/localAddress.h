/* Addresses of the filter's own machine, and of its neighbours on the wire: what is behind them may take whoever comes
   from the filter for one of the house. Internal to the library. */
#ifndef NETSIFT_HTTP_LOCALADDRESS_H
#define NETSIFT_HTTP_LOCALADDRESS_H

#include <sys/socket.h>

#include <string>

namespace netsift {

/* Loopback, link-local, unspecified, or one of this machine's own, among them those that the filter listens on; of an
   IPv6 address that stands for an IPv4 address, what that is. */
bool isLocalAddress(const sockaddr *address);

/* The same of a target's host as it stands, without resolving it: a literal address, or a name that means "here"
   (RFC 6761 section 6.3). */
bool isLocalHost(const std::string &host);

}  // namespace netsift

#endif
