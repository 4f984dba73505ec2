#include "host/worker.h"

#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "host/child.h"
#include "host/clientCount.h"
#include "host/handOver.h"
#include "host/hostConfig.h"
#include "host/problems.h"
#include "host/sockets.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr unsigned acceptPause = 1; /* seconds, after the system was out of descriptors or memory */

struct Worker {
  std::span<const int> listeners;
  const Pool &pool;
  Board *board;
  WorkerSlot *slot;
  size_t next = 0; /* the listener that is looked at first */
  int events = -1;
  int32_t served = 0;
  int firstDescriptor = -1; /* what connections open lies from here on */
};

/* The terminal's Ctrl-C and hang-up go to the whole process group: the daemon alone decides what becomes of
   connections. The waking signal is let through while it waits for a client. */
void resetSignals() {
  for (int ignored : {SIGINT, SIGHUP, SIGPIPE}) signal(ignored, SIG_IGN);
  for (int usual : {SIGTERM, SIGCHLD}) signal(usual, SIG_DFL);
  signal(wakeSignal, [](int) {});
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, wakeSignal);
  sigprocmask(SIG_SETMASK, &blocked, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  prctl(PR_SET_NAME, "netsiftd-worker"); /* as ps shows it */
}

void poke(const Worker &worker) {
  const uint64_t one = 1;
  static_cast<void>(!write(worker.pool.poke, &one, sizeof one)); /* a full counter wakes as well */
}

[[noreturn]] void leave(Worker &worker) {
  if (worker.slot->state == WorkerState::idle) worker.pool.board->idle--;
  worker.slot->state = WorkerState::busy;
  _exit(0);
}

bool mustEnd(const Worker &worker) {
  const PoolBoard &board = *worker.pool.board;
  return worker.served >= hostConfig.connectionsPerProcess || board.closing || board.lists != worker.pool.lists ||
         worker.slot->leave;
}

/* The count goes down before the state changes, here and in leave: of a worker that is killed in between, the server
   takes one off too many and keeps one more ready; the other way round it would count one that is not there.

   The server is told when there are too few that wait and it may start more, when it may not and is to look who waits,
   or when it waits for them to end. */
void becomeBusy(Worker &worker) {
  PoolBoard &board = *worker.pool.board;
  int32_t left = --board.idle;
  worker.slot->state = WorkerState::busy;
  bool mayStart = allWorkers(*worker.board) < hostConfig.maxConnections;
  bool scarce = mayStart ? left < hostConfig.spareProcesses : left <= 0 && !board.watched;
  if (scarce || board.closing) poke(worker);
}

/* A client who is there already when a worker begins or a connection ends, and all that may run are busy, has waited. */
void countWaiting(Worker &worker) {
  if (worker.pool.board->idle > 0 || allWorkers(*worker.board) < hostConfig.maxConnections) return;
  if (worker.pool.board->waited++ == 0) poke(worker);
}

int takeFrom(int listener, SocketAddress *peer) {
  socklen_t length = sizeof *peer;
  int sock = accept4(listener, &peer->any, &length, SOCK_CLOEXEC);
  *peer = plainAddress(*peer);
  if (sock >= 0 || errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return sock;
  say(std::string("a client cannot be taken: ") + std::strerror(errno) + "; clients wait a second");
  sleep(acceptPause);
  return sock;
}

/* The listeners in turn: where clients wait at several, none of them is served before the others for ever. */
int takeClient(Worker &worker, SocketAddress *peer) {
  for (size_t tried = 0; tried < worker.listeners.size(); tried++) {
    const int listener = worker.listeners[worker.next];
    worker.next = (worker.next + 1) % worker.listeners.size();
    if (int sock = takeFrom(listener, peer); sock >= 0) return sock;
  }
  return -1;
}

int waitWithin(Worker &worker, int milliseconds) {
  sigset_t none;
  sigemptyset(&none);
  struct epoll_event found;
  const int count = epoll_pwait(worker.events, &found, 1, milliseconds, &none);
  if (count == 1 && found.data.u64 < worker.listeners.size()) worker.next = found.data.u64;
  return count;
}

/* What is kept for the next client is given up when none has come by then. */
void waitForEvent(Worker &worker) {
  const bool keeps = KeepUpstreamSeconds > 0 && worker.served > 0;
  if (keeps && waitWithin(worker, 1000 * KeepUpstreamSeconds) != 0) return;
  if (keeps) netsift_releaseUpstreams();
  waitWithin(worker, -1);
}

/* A worker that is woken tries to take a client before it looks whether it must end: nobody else is woken for that one.
   It first looks, in contrast, after a connection, marked as idle: the server that closes the pool waits until nobody is,
   and knows then that no client is taken any more. */
int awaitClient(Worker &worker, SocketAddress *peer) {
  if (worker.slot->state.exchange(WorkerState::idle) != WorkerState::idle) worker.pool.board->idle++;
  if (mustEnd(worker)) leave(worker);
  for (bool slept = false;; slept = true) {
    int sock = takeClient(worker, peer);
    if (sock >= 0) {
      becomeBusy(worker);
      if (!slept) countWaiting(worker);
      return sock;
    }
    if (mustEnd(worker)) leave(worker);
    waitForEvent(worker);
  }
}

/* One of the waiting is woken for a client, all of them by the pool's hang-up. */
bool watch(Worker &worker) {
  worker.events = epoll_create1(EPOLL_CLOEXEC);
  struct epoll_event wanted {};
  wanted.events = EPOLLIN | EPOLLEXCLUSIVE;
  for (int listener : worker.listeners) {
    if (epoll_ctl(worker.events, EPOLL_CTL_ADD, listener, &wanted) != 0) return false;
    wanted.data.u64++; /* its place among the listeners; behind them, the hang-up */
  }
  wanted.events = EPOLLIN;
  return epoll_ctl(worker.events, EPOLL_CTL_ADD, worker.pool.hangUpRead, &wanted) == 0;
}

constexpr uint32_t mostNumbers = 100000000; /* with a tag of 40 bytes they fit what may begin a line */

/* Log lines of a connection begin with its number: the process is the same for many. */
void numberLines(const Worker &worker) {
  uint32_t number = ++worker.board->connections % mostNumbers;
  numberTunnel(number);
  setDebugString((hostConfig.debugTag + "#" + std::to_string(number) + " ").c_str());
}

void serveClient(Worker &worker, int sock, const SocketAddress &peer) {
  numberLines(worker);
  worker.board->serving++;
  worker.slot->serves = true;
  serveConnection(sock, peer);
  worker.slot->serves = false;
  worker.board->serving--;
  netsift_resetState(worker.firstDescriptor);
  worker.served++;
}

}  // namespace

void work(std::span<const int> listeners, const Pool &pool, Board *board, int slot) {
  pid_t server = getppid();
  resetSignals();
  useMetricShard(slot);
  Worker worker{listeners, pool, board, &pool.slots[slot]};
  worker.next =
      board->connections % listeners.size(); /* with a process for each connection it is they who take turns */
  if (!watch(worker)) {
    say(std::string("a process cannot wait for clients: ") + std::strerror(errno));
    leave(worker);
  }
  if (std::ranges::any_of(hostConfig.listen, isSix)) learnNeighbours();
  worker.firstDescriptor = fillDescriptors();
  if (pool.offer >= 0) handOverTunnels(pool.offer, board);
  while (getppid() == server) { /* it may have died before its death was to be told */
    SocketAddress peer{};
    int sock = awaitClient(worker, &peer);
    if (countClient(pool, *worker.slot, peer)) {
      serveClient(worker, sock, peer);
    } else {
      turnAway(pool, sock, peer);
    }
    uncountClient(pool, *worker.slot);
  }
  leave(worker);
}

}  // namespace netsift::host
