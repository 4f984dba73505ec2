/* An address of either family with its port, as the system's calls take it, and its text. An IPv4 address that comes as
   an IPv6 one (::ffff:10.0.0.1, RFC 4291 section 2.5.5.2) is the IPv4 address. All of it inline: the daemon has no part
   of the library but what that exports. */
#ifndef NETSIFT_UTIL_SOCKETADDRESS_H
#define NETSIFT_UTIL_SOCKETADDRESS_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

namespace netsift {

union SocketAddress {
  sockaddr_in6 six; /* the largest first: {} makes all of it zero, of the family AF_UNSPEC */
  sockaddr_in four;
  sockaddr any;
};

inline bool isSix(const SocketAddress &address) { return address.any.sa_family == AF_INET6; }

inline socklen_t sizeOf(const SocketAddress &address) {
  return isSix(address) ? sizeof address.six : sizeof address.four;
}

/* The port lies at the same place in both. */
inline uint16_t portOf(const SocketAddress &address) { return ntohs(address.four.sin_port); }
inline void setPort(SocketAddress &address, unsigned port) {
  address.four.sin_port = htons(static_cast<uint16_t>(port));
}

inline SocketAddress fourAddress(in_addr bare, unsigned port) {
  SocketAddress address{};
  address.four.sin_family = AF_INET;
  address.four.sin_addr = bare;
  setPort(address, port);
  return address;
}

/* What the system gave, an IPv4 address as such. */
inline SocketAddress plainAddress(const SocketAddress &given) {
  if (!isSix(given) || !IN6_IS_ADDR_V4MAPPED(&given.six.sin6_addr)) return given;
  in_addr bare;
  std::memcpy(&bare, given.six.sin6_addr.s6_addr + 12, sizeof bare);
  return fourAddress(bare, portOf(given));
}

/* "10.0.0.1", "2001:db8::1". */
inline std::string hostText(const SocketAddress &address) {
  char text[INET6_ADDRSTRLEN] = "";
  const void *bare = &address.four.sin_addr;
  if (isSix(address)) bare = &address.six.sin6_addr;
  inet_ntop(address.any.sa_family, bare, text, sizeof text);
  return text;
}

/* "10.0.0.1:8080", "[2001:db8::1]:8080". */
inline std::string endpointText(const SocketAddress &address) {
  const std::string host = isSix(address) ? "[" + hostText(address) + "]" : hostText(address);
  return host + ":" + std::to_string(portOf(address));
}

/* The address that hostText would write so, or another form of it, with port 0. False when it is none. */
inline bool parseHost(std::string_view text, SocketAddress *address) {
  const std::string host(text);
  *address = {};
  if (inet_pton(AF_INET, host.c_str(), &address->four.sin_addr) == 1) {
    address->four.sin_family = AF_INET;
    return true;
  }
  *address = {};
  if (inet_pton(AF_INET6, host.c_str(), &address->six.sin6_addr) != 1) return false;
  address->six.sin6_family = AF_INET6;
  *address = plainAddress(*address);
  return true;
}

/* "127.0.0.1:8080", "[::1]:8080": an IPv6 address stands in brackets, nothing else does. Port 0 is accepted. */
inline bool parseEndpoint(std::string_view text, SocketAddress *address) {
  const size_t colon = text.rfind(':');
  if (colon == text.npos) return false;
  const std::string_view digits = text.substr(colon + 1);
  std::string_view host = text.substr(0, colon);
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (bracketed != (host.find(':') != host.npos) || host.find('\0') != host.npos) return false;
  uint16_t port = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (error != std::errc{} || end != digits.data() + digits.size() || !parseHost(host, address)) return false;
  setPort(*address, port);
  return true;
}

}  // namespace netsift

#endif
