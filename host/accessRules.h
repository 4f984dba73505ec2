/* What the rules of [[access]] say about a client. Those for IPv4 are the library's access list; those for IPv6, which
   that list cannot hold, are kept here, and mean the same. */
#ifndef NETSIFT_HOST_ACCESSRULES_H
#define NETSIFT_HOST_ACCESSRULES_H

#include <netinet/in.h>

#include <cstdint>

#include "util/socketAddress.h"

namespace netsift::host {

struct SixRule {
  in6_addr network, mask; /* of the network no bit beyond the mask */
  int32_t from, to;       /* minutes of the day, both inclusive */
  int8_t level;
};

/* The highest level of the rules that hold for the client now; 2 where none does. */
int accessLevel(const SocketAddress &client);

}  // namespace netsift::host

#endif
