/* A connection to the first of several addresses that answers (RFC 8305, in its simple form: the addresses are known
   before). Internal to the library. */
#ifndef NETSIFT_HTTP_DIAL_H
#define NETSIFT_HTTP_DIAL_H

#include <chrono>
#include <span>
#include <vector>

#include "http/wait.h"
#include "util/socketAddress.h"

namespace netsift {

constexpr std::chrono::milliseconds nextAddressAfter{250};
constexpr std::chrono::seconds failureLifetime{30};

/* The order in which they are best tried: families in turn, IPv6 first, each in the order in which they came; and behind
   all of those the ones that dial found wanting in this process within failureLifetime. */
std::vector<SocketAddress> dialOrder(const std::vector<SocketAddress> &addresses,
                                     std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

struct Dialled {
  Wait wait = Wait::failed;
  int fd = -1;             /* a blocking stream socket when `wait` is ready */
  SocketAddress address{}; /* that it is connected to */
};

/* Connects to one after another in the order given: to the next when the latest has failed, or has not answered within
   nextAddressAfter and goes on being waited for. All together for no longer than `milliseconds`, negative: without
   limit, while `client` is watched for having left. Unless it is `ready` errno says what failed last. */
Dialled dial(std::span<const SocketAddress> addresses, int milliseconds, int client);

}  // namespace netsift

#endif
