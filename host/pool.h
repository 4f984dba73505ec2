/* What a generation's server and its workers share, and the server's side of it: how many workers there are. A worker
   is a process that serves one connection after another; the clients wait in the listeners' queues until one takes them,
   so that none is taken who cannot be served. */
#ifndef NETSIFT_HOST_POOL_H
#define NETSIFT_HOST_POOL_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/metrics.h"
#include "log/requestLog.h"

namespace netsift::host {

constexpr int mostGenerations = 64;

/* In memory that the processes of all generations share. */
struct Board {
  std::atomic<int32_t> workers[mostGenerations]; /* running, of each generation: max_connections holds over all */
  std::atomic<int32_t> tunnels[mostGenerations]; /* held by the relay processes of each */
  std::atomic<uint32_t> connections;             /* taken so far: the number of the latest */
  std::atomic<int32_t> serving;                  /* connections that are served now */
  NetsiftLogBoard requestLog;                    /* of all that write it */
  Metrics metrics;
};

int32_t allWorkers(const Board &board);
int32_t allTunnels(const Board &board);

/* Written by its worker alone, but for the first idle. */
enum class WorkerState : int32_t { idle, busy };

struct alignas(64) WorkerSlot { /* a cache line each: they are written with every connection */
  std::atomic<WorkerState> state;
  std::atomic<bool> leave;      /* not needed any more */
  std::atomic<bool> serves;     /* is counted among those that serve now */
  std::atomic<uint64_t> client; /* whom it serves, as clientCount knows clients; 0: nobody that counts */
};

constexpr unsigned clientBucketBits = 12;

/* In memory that the processes of one generation share. A slot for each of max_connections stands behind it. */
struct alignas(64) PoolBoard {
  std::atomic<int32_t> idle;   /* workers that wait for a client */
  std::atomic<int32_t> waited; /* clients who had to wait until a worker was free since all that may run were busy */
  std::atomic<uint32_t> lists; /* changes to the lists: what a worker has is older than the latest */
  std::atomic<bool> closing;   /* no more clients are to be taken */
  std::atomic<bool> watched;   /* the server looks for clients who have to wait */
  std::atomic<int32_t> turnedAway;                     /* connections of clients who had too many */
  std::atomic<uint64_t> lastTurnedAway[2];             /* and the address of the last, as IPv6 writes both families */
  std::atomic<int32_t> clients[1 << clientBucketBits]; /* connections, by a hash of the client */
};

struct Pool {
  PoolBoard *board = nullptr;
  WorkerSlot *slots = nullptr;
  int poke = -1;                          /* eventfd: workers are getting scarce, or somebody had to wait */
  int idleSemaphore = -1;                 /* eventfd: one is taken by each idle connection, whatever its generation,
                                             that ends to make room */
  int hangUpRead = -1, hangUpWrite = -1;  /* a pipe whose end of file wakes the workers that wait */
  int offer = -1, take = -1;              /* sockets: workers offer tunnels, the relay process takes them */
  std::unordered_map<pid_t, int> workers; /* and their slots */
  std::vector<int> freeSlots;
  uint32_t lists = 0;           /* as in the board: a worker keeps what was there when it was forked */
  int64_t startFrom = 0;        /* later, after the system was out of processes or memory */
  int64_t reduceAt = INT64_MAX; /* when workers that nobody needs are ended */
  int64_t tellWaitedAt = 0;     /* not earlier is it told again how many had to wait */
  int64_t tellTurnedAwayAt = 0; /* or were turned away */
  int64_t pressAt = 0;          /* nor are idle connections asked again to make room */
  uint64_t pressed = 0;         /* so many were asked */
};

/* Makes what is shared. False with errno when it cannot be had. */
bool makePool(Pool &pool, int idleSemaphore);

/* Takes note of a process that has ended; false when it is none of the pool's. */
bool forgetWorker(Pool &pool, Board &board, int generation, pid_t worker);

/* Whether one more worker is to be started; when it is to be, but not now, `wake` becomes when to look again. */
bool wantsWorker(const Pool &pool, const Board &board, int64_t now, int64_t *wake);

/* A slot for a worker about to be started, marked as waiting for a client, and its return when that failed. */
int takeSlot(Pool &pool, Board &board, int generation);
void returnSlot(Pool &pool, Board &board, int generation, int slot);

/* Once a second, half of the waiting workers beyond spare_processes are told to end. */
void reducePool(Pool &pool, int64_t now, int64_t *wake);

/* At most once a minute, how many clients had to wait. */
void tellWaited(Pool &pool, int64_t now);

/* Whether every worker that may run is busy, so that a further client has to wait. The workers are told whether the
   server looks for such clients. */
bool isCrowded(Pool &pool, const Board &board);

/* Asks as many idle connections to end as clients wait at the listeners; or none any more, which returns how many had
   heard it. */
void pressIdle(Pool &pool, std::span<const int> listeners, int64_t now);
uint64_t releaseIdle(Pool &pool);

/* From now on workers take no more clients: those that wait end, the others after the connection they serve. */
void closePool(Pool &pool);
bool anyIdle(const Pool &pool);

/* Lets every worker end as above, for new ones that have the lists as they are now. */
void renewWorkers(Pool &pool);

}  // namespace netsift::host

#endif
