/* The addresses that a site's host has, of both families. Internal to the library. */
#ifndef NETSIFT_HTTP_SITEADDRESSES_H
#define NETSIFT_HTTP_SITEADDRESSES_H

#include <chrono>
#include <string>
#include <vector>

#include "util/socketAddress.h"

namespace netsift {

constexpr size_t mostSiteAddresses = 16; /* of one host; the resolver's further ones are passed over */
constexpr std::chrono::seconds nameLifetime{10};

/* The address that a target's host is, "10.0.0.1" or "[::1]"; false when it is a name. */
bool literalAddress(const std::string &host, SocketAddress *address);

/* Those of a target's host, with the port: a literal's own, of a name what the resolver says, or
   has said to this process within nameLifetime. Of a family that the machine has no address of, loopback aside, none
   are asked for. Empty when there are none, which is not remembered. */
std::vector<SocketAddress> siteAddresses(const std::string &host, unsigned port,
                                         std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

}  // namespace netsift

#endif
