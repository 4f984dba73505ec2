#include "host/pool.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <new>
#include <numeric>
#include <string>
#include <utility>

#include "host/clientCount.h"
#include "host/hostConfig.h"
#include "host/problems.h"
#include "host/tunnelRelay.h"
#include "host/worker.h"
#include "state/settings.h"

namespace netsift::host {

namespace {

constexpr int64_t otherGenerationsPause = 200; /* how often to look whether older generations made room */
constexpr int64_t reducePause = 1000;
constexpr int64_t tellPause = 60000;
constexpr int64_t pressPause = 50, freedPause = 300; /* the latter where some made room, and are to take who waits */

void wakeWorker(pid_t worker) { kill(worker, wakeSignal); }

int32_t sumOf(const std::atomic<int32_t> (&counts)[mostGenerations]) {
  int32_t sum = 0;
  for (const auto &count : counts) sum += count.load(std::memory_order_relaxed);
  return sum;
}

/* TCP_INFO of a listener gives its queue's length as what is unacknowledged. */
uint64_t queueLength(int listener) {
  struct tcp_info info {};
  socklen_t length = sizeof info;
  return getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 ? info.tcpi_unacked : 0;
}

}  // namespace

int32_t allWorkers(const Board &board) { return sumOf(board.workers); }
int32_t allTunnels(const Board &board) { return sumOf(board.tunnels); }

bool makePool(Pool &pool, int idleSemaphore) {
  auto count = static_cast<size_t>(hostConfig.maxConnections);
  size_t size = sizeof(PoolBoard) + count * sizeof(WorkerSlot);
  void *shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return false;
  pool.board = new (shared) PoolBoard{}; /* the slots behind it are zero, which is what they begin with */
  pool.slots = reinterpret_cast<WorkerSlot *>(pool.board + 1);
  pool.freeSlots.resize(count);
  std::iota(pool.freeSlots.rbegin(), pool.freeSlots.rend(), 0); /* the lowest first, so that few pages are touched */
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  pool.hangUpRead = ends[0];
  pool.hangUpWrite = ends[1];
  pool.poke = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (pool.poke < 0) return false;
  IdleSemaphore = pool.idleSemaphore = idleSemaphore;
  for (uint64_t left; read(idleSemaphore, &left, sizeof left) == sizeof left;) continue; /* by a server that crashed */
  if (hostConfig.maxTunnels == 0) return true;
  hostConfig.maxTunnels = std::min(hostConfig.maxTunnels, mostTunnels());
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
  pool.offer = ends[0];
  pool.take = ends[1];
  return true;
}

bool forgetWorker(Pool &pool, Board &board, int generation, pid_t worker) {
  auto found = pool.workers.find(worker);
  if (found == pool.workers.end()) return false;
  if (pool.slots[found->second].serves.exchange(false)) board.serving--; /* it was killed */
  returnSlot(pool, board, generation, found->second);
  pool.workers.erase(found);
  return true;
}

bool wantsWorker(const Pool &pool, const Board &board, int64_t now, int64_t *wake) {
  if (pool.board->closing || pool.board->idle >= hostConfig.spareProcesses || pool.freeSlots.empty()) return false;
  if (now < pool.startFrom) {
    *wake = std::min(*wake, pool.startFrom);
    return false;
  }
  if (allWorkers(board) < hostConfig.maxConnections) return true;
  *wake = std::min(*wake, now + otherGenerationsPause); /* with all of them its own there would be no free slot */
  return false;
}

int takeSlot(Pool &pool, Board &board, int generation) {
  int slot = pool.freeSlots.back();
  pool.freeSlots.pop_back();
  pool.slots[slot].leave = false;
  pool.slots[slot].state = WorkerState::idle;
  pool.board->idle++;
  board.workers[generation]++;
  return slot;
}

void returnSlot(Pool &pool, Board &board, int generation, int slot) {
  uncountClient(pool, pool.slots[slot]);
  if (pool.slots[slot].state.exchange(WorkerState::busy) == WorkerState::idle) pool.board->idle--;
  pool.freeSlots.push_back(slot);
  board.workers[generation]--;
}

void reducePool(Pool &pool, int64_t now, int64_t *wake) {
  int32_t surplus = pool.board->closing ? 0 : pool.board->idle - hostConfig.spareProcesses;
  if (surplus <= 0) {
    pool.reduceAt = INT64_MAX;
    return;
  }
  if (pool.reduceAt == INT64_MAX) pool.reduceAt = now + reducePause;
  if (now >= pool.reduceAt) {
    int32_t ending = (surplus + 1) / 2;
    for (auto [worker, slot] : pool.workers) {
      if (ending == 0) break;
      if (pool.slots[slot].state != WorkerState::idle || pool.slots[slot].leave.exchange(true)) continue;
      wakeWorker(worker);
      ending--;
    }
    pool.reduceAt = now + reducePause;
  }
  *wake = std::min(*wake, pool.reduceAt);
}

void tellWaited(Pool &pool, int64_t now) {
  if (now < pool.tellWaitedAt || pool.board->waited == 0) return;
  int32_t count = pool.board->waited.exchange(0);
  say("listen.max_connections is reached: " + std::to_string(count) + (count == 1 ? " client" : " clients") +
      " had to wait for a connection to end");
  pool.tellWaitedAt = now + tellPause;
}

bool isCrowded(Pool &pool, const Board &board) {
  const auto look = [&] {
    return !pool.board->closing && pool.board->idle <= 0 && allWorkers(board) >= hostConfig.maxConnections;
  };
  const bool crowded = look();
  pool.board->watched = crowded;
  return crowded || look(); /* the last worker may have become busy before it could see that nobody looks */
}

void pressIdle(Pool &pool, std::span<const int> listeners, int64_t now) {
  const bool freed = releaseIdle(pool) > 0;
  pool.pressAt = now + (freed ? freedPause : pressPause);
  if (freed) return;
  uint64_t waiting = 0;
  for (int listener : listeners) waiting += queueLength(listener);
  waiting = std::max<uint64_t>(waiting, 1); /* somebody does, or nobody had asked */
  if (write(pool.idleSemaphore, &waiting, sizeof waiting) == sizeof waiting) pool.pressed = waiting;
}

uint64_t releaseIdle(Pool &pool) {
  uint64_t one;
  while (pool.pressed > 0 && read(pool.idleSemaphore, &one, sizeof one) == sizeof one) pool.pressed--;
  return std::exchange(pool.pressed, 0);
}

void closePool(Pool &pool) {
  pool.board->closing = true;
  if (pool.hangUpWrite >= 0) close(std::exchange(pool.hangUpWrite, -1));
  if (pool.offer >= 0) close(std::exchange(pool.offer, -1)); /* the workers' are the last */
}

bool anyIdle(const Pool &pool) {
  return std::ranges::any_of(pool.workers,
                             [&pool](auto &each) { return pool.slots[each.second].state == WorkerState::idle; });
}

void renewWorkers(Pool &pool) {
  pool.board->lists = ++pool.lists;
  for (auto [worker, slot] : pool.workers) {
    if (pool.slots[slot].state == WorkerState::idle) wakeWorker(worker);
  }
}

}  // namespace netsift::host
