#include "http/localAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace netsift {
namespace {

constexpr in_port_t anyPort = 80; /* of an address that was given none */

bool isNarrow(const sockaddr_in &address) {
  const uint32_t number = ntohl(address.sin_addr.s_addr);
  return number >> 24 == 0 || number >> 24 == IN_LOOPBACKNET || number >> 16 == 0xA9FE; /* 169.254.0.0/16, RFC 3927 */
}

bool isNarrow(const sockaddr_in6 &address) {
  const in6_addr &bare = address.sin6_addr;
  return IN6_IS_ADDR_UNSPECIFIED(&bare) || IN6_IS_ADDR_LOOPBACK(&bare) || IN6_IS_ADDR_LINKLOCAL(&bare);
}

bool isSame(const sockaddr_in &one, const sockaddr_in &other) { return one.sin_addr.s_addr == other.sin_addr.s_addr; }
bool isSame(const sockaddr_in6 &one, const sockaddr_in6 &other) {
  return IN6_ARE_ADDR_EQUAL(&one.sin6_addr, &other.sin6_addr) != 0;
}

/* What the system sends to an address of its own comes from there too. Nothing is sent to find that out. */
template <typename Address>
bool isOwn(const Address &address) {
  sockaddr general;
  std::memcpy(&general, &address, sizeof general);
  const int fd = socket(general.sa_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  Address source{};
  socklen_t size = sizeof source;
  const bool isFound = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                       getsockname(fd, reinterpret_cast<sockaddr *>(&source), &size) == 0;
  close(fd);
  return isFound && isSame(source, address);
}

template <typename Address>
bool isLocal(const Address &address) {
  return isNarrow(address) || isOwn(address);
}

bool isLocal4(const void *bytes) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(anyPort);
  std::memcpy(&address.sin_addr, bytes, sizeof address.sin_addr);
  return isLocal(address);
}

/* Those that carry an IPv4 address in their last 4 bytes: mapped (RFC 4291 section 2.5.5) and translated (RFC 6052). */
bool isLocal6(const in6_addr &bare) {
  constexpr unsigned char translated[12] = {0, 0x64, 0xFF, 0x9B};
  const bool isTranslated = std::equal(std::begin(translated), std::end(translated), bare.s6_addr);
  if (IN6_IS_ADDR_V4MAPPED(&bare) || isTranslated) return isLocal4(bare.s6_addr + sizeof translated);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(anyPort);
  address.sin6_addr = bare;
  return isLocal(address);
}

}  // namespace

bool isLocalAddress(const sockaddr *address) {
  if (address->sa_family == AF_INET) return isLocal4(&reinterpret_cast<const sockaddr_in *>(address)->sin_addr);
  return address->sa_family == AF_INET6 && isLocal6(reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr);
}

bool isLocalHost(const std::string &host) {
  constexpr std::string_view names[] = {"localhost", "localhost.localdomain", "ip6-localhost", "ip6-loopback"};
  in_addr four;
  in6_addr six;
  if (inet_aton(host.c_str(), &four) != 0) return isLocal4(&four);
  if (host.starts_with('[')) {
    return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &six) == 1 && isLocal6(six);
  }
  return host.ends_with(".localhost") || std::find(std::begin(names), std::end(names), host) != std::end(names);
}

}  // namespace netsift
