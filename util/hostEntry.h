/* A copy of what the resolver returned, which the resolver's next look-up would overwrite. */
#ifndef NETSIFT_UTIL_HOSTENTRY_H
#define NETSIFT_UTIL_HOSTENTRY_H

#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cstring>
#include <string>

namespace netsift {

constexpr size_t maximumAddresses = 16;

struct HostEntry {
  hostent entry;
  std::string name;
  std::array<in6_addr, maximumAddresses> addresses; /* or each an in_addr, as the entry says */
  std::array<char *, maximumAddresses + 1> list;
  char *noAlias;
};

/* The answer in `found`, of one family, copied into `copy`; null when there is none. Valid until the next copy into `copy`. */
inline hostent *copyHostEntry(HostEntry &copy, const hostent *found) {
  if (found == nullptr || found->h_addr_list[0] == nullptr) return nullptr;
  const auto length = static_cast<size_t>(found->h_length);
  if (length != sizeof(in_addr) && length != sizeof(in6_addr)) return nullptr;
  copy.name = found->h_name == nullptr ? "" : found->h_name;
  copy.list = {};
  for (size_t i = 0; i < maximumAddresses && found->h_addr_list[i] != nullptr; i++) {
    std::memcpy(&copy.addresses[i], found->h_addr_list[i], length);
    copy.list[i] = reinterpret_cast<char *>(&copy.addresses[i]);
  }
  copy.noAlias = nullptr;
  copy.entry = {copy.name.data(), &copy.noAlias, found->h_addrtype, found->h_length, copy.list.data()};
  return &copy.entry;
}

}  // namespace netsift

#endif
