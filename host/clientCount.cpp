#include "host/clientCount.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "host/hostConfig.h"
#include "host/problems.h"

namespace netsift::host {

namespace {

constexpr int64_t tellPause = 60000;

/* Never 0, which stands for nobody. */
uint64_t keyOf(const struct sockaddr_in &peer) { return uint64_t{1} << 32 | peer.sin_addr.s_addr; }

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

/* The bucket's count is of all clients that fall into it, and so an upper bound: it is looked closer only beyond. */
bool countClient(const Pool &pool, WorkerSlot &slot, const struct sockaddr_in &peer) {
  if (hostConfig.connectionsPerClient == 0) return true;
  const uint64_t key = keyOf(peer);
  slot.client = key;
  if (++bucketOf(pool, key) <= hostConfig.connectionsPerClient) return true;
  return connectionsOf(pool, key) <= hostConfig.connectionsPerClient;
}

void uncountClient(const Pool &pool, WorkerSlot &slot) {
  const uint64_t key = slot.client.exchange(0);
  if (key != 0) bucketOf(pool, key)--;
}

void turnAway(const Pool &pool, int sock, const struct sockaddr_in &peer) {
  constexpr char answer[] = "HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
  static_cast<void>(send(sock, answer, sizeof answer - 1, MSG_DONTWAIT | MSG_NOSIGNAL));
  close(sock);
  pool.board->lastTurnedAway = peer.sin_addr.s_addr;
  if (pool.board->turnedAway++ > 0) return;
  const uint64_t one = 1;
  static_cast<void>(!write(pool.poke, &one, sizeof one));
}

void tellTurnedAway(Pool &pool, int64_t now) {
  if (now < pool.tellTurnedAwayAt || pool.board->turnedAway == 0) return;
  const struct in_addr last { pool.board->lastTurnedAway };
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &last, text, sizeof text);
  const int32_t count = pool.board->turnedAway.exchange(0);
  say("listen.max_connections_per_client is reached: " + std::to_string(count) +
      (count == 1 ? " connection was" : " connections were") + " turned away, the last from " + text);
  pool.tellTurnedAwayAt = now + tellPause;
}

}  // namespace netsift::host
