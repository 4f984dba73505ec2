/* The upstream connection of the strict road: opened when policy has passed a request, kept from one to the next while
   it leads there, closed as soon as it may not be used again. */
#ifndef NETSIFT_CONNECTION_STRICT_CONNECT_H
#define NETSIFT_CONNECTION_STRICT_CONNECT_H

#include "connection/cycle.h"

namespace netsift {

/* Which sockets of earlier cycles will do: none, those that are this client's alone, or any. */
enum class Reuse { none, personal, any };

constexpr int clientHasLeft = -1, targetIsLocal = -2;

/* Makes the upstream socket one that leads to the upstream proxy, or in direct mode to the cycle's target: that of an
   earlier cycle which is open and silent, where it may be, else a new one. Those that lead to three others stay open
   beside it; with a fifth one of them is closed. Returns 0, or with `reason` set the status of the error page: 502 when
   the host does not resolve or refuses, 504 when it does not answer; or clientHasLeft, when nobody is there any more to
   see it; or targetIsLocal, when RefuseLocalAddresses is on and an address of the host, or the host itself before a proxy
   that resolves it, is not one for clients. All addresses of a host together are waited for no longer than PROXY_TIMEOUT.
   The socket is personal from then on if the request carries a login. */
int openUpstream(Connection &connection, Cycle &cycle, Reuse reuse);

/* Closes the upstream socket, so that no later cycle reuses it. */
void closeUpstream(Connection &connection);

}  // namespace netsift

#endif
