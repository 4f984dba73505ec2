#include "http/siteAddresses.h"

#include <netdb.h>

#include <algorithm>
#include <array>
#include <memory>

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;
using Addresses = std::vector<SocketAddress>;

struct Remembered {
  std::string host;
  Addresses addresses;
  Clock::time_point until{};
};

/* More than a page's sites; the one that is forgotten first makes room. Kept from one connection to the next. */
std::array<Remembered, 64> names;

struct ResultFree {
  void operator()(addrinfo *first) const { freeaddrinfo(first); }
};

Addresses askResolver(const std::string &host) {
  addrinfo wanted{}, *first = nullptr;
  wanted.ai_socktype = SOCK_STREAM; /* else each address comes once for every kind of socket */
  wanted.ai_flags = AI_ADDRCONFIG;
  if (getaddrinfo(host.c_str(), nullptr, &wanted, &first) != 0) return {};
  const std::unique_ptr<addrinfo, ResultFree> owned(first);
  Addresses found;
  for (const addrinfo *each = first; each != nullptr && found.size() < mostSiteAddresses; each = each->ai_next) {
    SocketAddress address{};
    if (each->ai_addrlen > sizeof address) continue;
    std::memcpy(&address, each->ai_addr, each->ai_addrlen);
    found.push_back(plainAddress(address));
  }
  return found;
}

Addresses resolve(const std::string &host, Clock::time_point now) {
  const auto known = std::ranges::find(names, host, &Remembered::host);
  if (known != names.end() && now < known->until) return known->addresses;
  Addresses found = askResolver(host);
  if (found.empty()) return found;
  Remembered &place = known != names.end() ? *known : *std::ranges::min_element(names, {}, &Remembered::until);
  place = {host, found, now + nameLifetime};
  return found;
}

}  // namespace

bool literalAddress(const std::string &host, SocketAddress *address) {
  const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  return parseHost(isBracketed ? host.substr(1, host.size() - 2) : host, address);
}

std::vector<SocketAddress> siteAddresses(const std::string &host, unsigned port, Clock::time_point now) {
  Addresses found(1);
  if (!literalAddress(host, found.data())) found = resolve(host, now);
  for (SocketAddress &address : found) setPort(address, port);
  return found;
}

}  // namespace netsift
