#include "host/clientCount.h"

#include <endian.h>
#include <ifaddrs.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/hostConfig.h"
#include "host/problems.h"

namespace netsift::host {

namespace {

constexpr int64_t tellPause = 60000;

std::vector<uint64_t> ownNetworks;

struct Halves {
  uint64_t network, host;
};

Halves halvesOf(const in6_addr &address) {
  Halves halves;
  static_assert(sizeof halves == sizeof address);
  std::memcpy(&halves, &address, sizeof halves);
  return {be64toh(halves.network), be64toh(halves.host)};
}

/* For the log: an IPv4 address as ::ffff:10.0.0.1. */
in6_addr asSix(const SocketAddress &peer) {
  if (isSix(peer)) return peer.six.sin6_addr;
  in6_addr mapped{};
  mapped.s6_addr[10] = mapped.s6_addr[11] = 0xFF;
  std::memcpy(mapped.s6_addr + 12, &peer.four.sin_addr, sizeof peer.four.sin_addr);
  return mapped;
}

/* The halves may be of two clients, when two are turned away at the same moment: it is only told. */
std::string lastTurnedAway(const Pool &pool) {
  SocketAddress last{};
  last.six.sin6_family = AF_INET6;
  const uint64_t halves[] = {htobe64(pool.board->lastTurnedAway[0]), htobe64(pool.board->lastTurnedAway[1])};
  std::memcpy(&last.six.sin6_addr, halves, sizeof halves);
  return hostText(plainAddress(last));
}

std::atomic<int32_t> &bucketOf(const Pool &pool, uint64_t key) {
  constexpr uint64_t spread = 0x9E3779B97F4A7C15; /* 2^64 by the golden ratio: neighbouring addresses lie far apart */
  return pool.board->clients[key * spread >> (64 - clientBucketBits)];
}

int32_t connectionsOf(const Pool &pool, uint64_t key) {
  int32_t count = 0;
  for (int32_t i = 0; i < hostConfig.maxConnections; i++) count += pool.slots[i].client == key;
  return count;
}

}  // namespace

void learnNeighbours() {
  ownNetworks.clear();
  ifaddrs *all = nullptr;
  if (getifaddrs(&all) != 0) return;
  for (const ifaddrs *each = all; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET6) continue;
    ownNetworks.push_back(halvesOf(reinterpret_cast<const sockaddr_in6 *>(each->ifa_addr)->sin6_addr).network);
  }
  freeifaddrs(all);
}

/* The networks of 0:1::/32, whose keys IPv4 addresses have, are nobody's. */
uint64_t clientKey(const SocketAddress &peer, std::span<const uint64_t> neighbours) {
  if (!isSix(peer)) return uint64_t{1} << 32 | peer.four.sin_addr.s_addr;
  const Halves halves = halvesOf(peer.six.sin6_addr);
  const bool isNear = std::ranges::find(neighbours, halves.network) != neighbours.end();
  return std::max<uint64_t>(isNear ? halves.network ^ halves.host : halves.network, 1);
}

/* The bucket's count is of all clients that fall into it, and so an upper bound: it is looked closer only beyond. */
bool countClient(const Pool &pool, WorkerSlot &slot, const SocketAddress &peer) {
  if (hostConfig.connectionsPerClient == 0) return true;
  const uint64_t key = clientKey(peer, ownNetworks);
  slot.client = key;
  if (++bucketOf(pool, key) <= hostConfig.connectionsPerClient) return true;
  return connectionsOf(pool, key) <= hostConfig.connectionsPerClient;
}

void uncountClient(const Pool &pool, WorkerSlot &slot) {
  const uint64_t key = slot.client.exchange(0);
  if (key != 0) bucketOf(pool, key)--;
}

void turnAway(const Pool &pool, int sock, const SocketAddress &peer) {
  constexpr char answer[] = "HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
  static_cast<void>(send(sock, answer, sizeof answer - 1, MSG_DONTWAIT | MSG_NOSIGNAL));
  close(sock);
  const Halves last = halvesOf(asSix(peer));
  pool.board->lastTurnedAway[0] = last.network;
  pool.board->lastTurnedAway[1] = last.host;
  if (pool.board->turnedAway++ > 0) return;
  const uint64_t one = 1;
  static_cast<void>(!write(pool.poke, &one, sizeof one));
}

void tellTurnedAway(Pool &pool, int64_t now) {
  if (now < pool.tellTurnedAwayAt || pool.board->turnedAway == 0) return;
  const std::string last = lastTurnedAway(pool);
  const int32_t count = pool.board->turnedAway.exchange(0);
  say("listen.max_connections_per_client is reached: " + std::to_string(count) +
      (count == 1 ? " connection was" : " connections were") + " turned away, the last from " + last);
  pool.tellTurnedAwayAt = now + tellPause;
}

}  // namespace netsift::host
