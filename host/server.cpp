#include "host/server.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/clientCount.h"
#include "host/clock.h"
#include "host/hostConfig.h"
#include "host/notify.h"
#include "host/problems.h"
#include "host/scanFiles.h"
#include "host/tunnelRelay.h"
#include "host/worker.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr int64_t stillPause = 50;         /* after which it is seen whether clients still wait for a place */
constexpr int64_t startPause = 1000;       /* after the system was out of processes or memory */
constexpr int64_t renewPause = 1000;       /* between two replacements of all workers for the sake of the lists */
constexpr int64_t killMilliseconds = 1000; /* from SIGTERM to SIGKILL */

enum class Phase { serving, retired, draining, ending, killing };

struct Server {
  ServerSockets sockets;
  Board *board;
  int slot;
  int signals = -1;
  Phase phase = Phase::serving;
  bool tellsRetired = false;    /* still to be told, when no worker waits for a client any more */
  int64_t deadline = INT64_MAX; /* of the phases draining and ending */
  bool listsChanged = false;
  int64_t renewFrom = 0;
  Pool pool;
  pid_t relay = -1; /* the process that holds the tunnels */
  int64_t relayFrom = 0;
  Messages messages;
};

void closeEach(std::span<const int> descriptors) {
  for (int fd : descriptors) {
    if (fd >= 0) close(fd);
  }
}

void closeAll(std::initializer_list<int> descriptors) { closeEach({descriptors.begin(), descriptors.size()}); }

/* What is the server's alone. */
void closeOwn(const Server &server) {
  closeAll({server.sockets.notify, server.sockets.control, server.signals, server.pool.hangUpWrite});
  for (const Message &message : server.messages) close(message.sock);
}

[[noreturn]] void becomeWorker(const Server &server, int slot) {
  closeOwn(server);
  closeAll({server.pool.take});
  work(server.sockets.listeners, server.pool, server.board, slot);
}

void startWorkers(Server &server, int64_t *wake) {
  while (wantsWorker(server.pool, *server.board, milliseconds(), wake)) {
    int slot = takeSlot(server.pool, *server.board, server.slot);
    pid_t child = fork();
    if (child == 0) becomeWorker(server, slot);
    if (child > 0) {
      server.pool.workers.emplace(child, slot);
      continue;
    }
    say(std::string("no process can be started for clients: ") + std::strerror(errno) + "; they wait a second");
    returnSlot(server.pool, *server.board, server.slot, slot);
    server.pool.startFrom = milliseconds() + startPause;
  }
}

/* A relay process that ends with workers left is replaced: what they offer meanwhile waits for the next. */
void startRelay(Server &server, int64_t *wake) {
  if (server.pool.take < 0 || server.relay > 0 || (server.pool.board->closing && server.pool.workers.empty())) return;
  if (milliseconds() < server.relayFrom) {
    *wake = std::min(*wake, server.relayFrom);
    return;
  }
  server.relayFrom = milliseconds() + startPause;
  server.board->tunnels[server.slot] = 0;
  server.relay = fork();
  if (server.relay < 0) *wake = std::min(*wake, server.relayFrom);
  if (server.relay != 0) return;
  closeOwn(server);
  const Pool &pool = server.pool;
  closeEach(server.sockets.listeners);
  closeAll({pool.poke, pool.idleSemaphore, pool.hangUpRead, pool.offer});
  relayTunnels(pool.take, server.board->tunnels[server.slot]);
}

void forgetRelay(Server &server, int status) {
  server.relay = -1;
  server.board->tunnels[server.slot] = 0;
  if (WIFSIGNALED(status) && server.phase != Phase::ending && server.phase != Phase::killing)
    say("the process that holds the tunnels ended by signal " + std::to_string(WTERMSIG(status)));
}

void reapChildren(Server &server) {
  struct signalfd_siginfo info;
  while (read(server.signals, &info, sizeof info) > 0) continue;
  int status;
  for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
    if (child == server.relay) forgetRelay(server, status);
    if (!forgetWorker(server.pool, *server.board, server.slot, child)) continue;
    removeScanFile(child);
    bool ownDoing = server.phase == Phase::ending || server.phase == Phase::killing;
    if (WIFSIGNALED(status) && !ownDoing)
      say("a connection's process (" + std::to_string(child) + ") ended by signal " + std::to_string(WTERMSIG(status)));
  }
}

void signalChildren(const Server &server, int signal) {
  for (auto [child, slot] : server.pool.workers) kill(child, signal);
  if (server.relay > 0) kill(server.relay, signal);
}

void closeSocket(int &sock) {
  if (sock >= 0) close(sock);
  sock = -1;
}

void endConnections(Server &server) {
  signalChildren(server, SIGTERM);
  server.phase = Phase::ending;
  server.deadline = milliseconds() + killMilliseconds;
}

bool tell(const Server &server, char message) { return send(server.sockets.control, &message, 1, MSG_NOSIGNAL) == 1; }

void obey(Server &server) {
  char command;
  ssize_t count = recv(server.sockets.control, &command, 1, MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) {
    closeSocket(server.sockets.control);
    command = drain;
  }
  closeEach(std::exchange(server.sockets.listeners, {}));
  closePool(server.pool);
  if (command == retire) { /* the next generation takes over the reports too */
    closeSocket(server.sockets.notify);
    server.phase = Phase::retired;
    server.tellsRetired = true;
  } else if (command == stop) {
    endConnections(server);
  } else if (server.phase == Phase::serving || server.phase == Phase::retired) {
    server.phase = Phase::draining;
    server.deadline = milliseconds() + int64_t{1000} * hostConfig.drainSeconds;
  }
}

/* Once nobody takes a client any more with what was loaded here. */
void tellRetired(Server &server) {
  if (!server.tellsRetired || anyIdle(server.pool)) return;
  server.tellsRetired = false;
  tell(server, retiredMessage);
}

/* Workers have the lists as they were when they were forked. */
void renewForLists(Server &server, int64_t now, int64_t *wake) {
  if (listsHaveChanged()) server.listsChanged = true;
  if (!server.listsChanged || server.phase != Phase::serving) return;
  if (now < server.renewFrom) {
    *wake = std::min(*wake, server.renewFrom);
    return;
  }
  server.listsChanged = false;
  server.renewFrom = now + renewPause;
  netsift_keepState();
  renewWorkers(server.pool);
}

void meetDeadline(Server &server) {
  if (milliseconds() < server.deadline) return;
  if (server.phase == Phase::draining) {
    endConnections(server);
  } else if (server.phase == Phase::ending) {
    signalChildren(server, SIGKILL);
    server.phase = Phase::killing;
    server.deadline = INT64_MAX;
  }
}

int pollTimeout(int64_t now, int64_t wake) {
  if (wake == INT64_MAX) return -1;
  return static_cast<int>(std::clamp<int64_t>(wake - now, 0, INT32_MAX));
}

/* One round: do what is due, wait, then do what has come. The messages' descriptors stand last, in their order. */
void serveRound(Server &server) {
  int64_t now = milliseconds(), wake = server.deadline;
  renewForLists(server, now, &wake);
  startRelay(server, &wake);
  startWorkers(server, &wake);
  reducePool(server.pool, now, &wake);
  tellWaited(server.pool, now);
  tellTurnedAway(server.pool, now);
  const bool crowded = isCrowded(server.pool, *server.board), presses = crowded && now >= server.pool.pressAt;
  if (crowded && !presses) wake = std::min(wake, server.pool.pressAt);
  if (!crowded) releaseIdle(server.pool);
  if (presses && server.pool.pressed > 0) wake = std::min(wake, now + stillPause);
  for (const Message &message : server.messages) wake = std::min(wake, message.deadline);
  bool messages = server.messages.size() < mostMessages;
  std::vector<struct pollfd> polled = {{server.signals, POLLIN, 0},
                                       {server.sockets.control, POLLIN, 0},
                                       {server.pool.poke, POLLIN, 0},
                                       {messages ? server.sockets.notify : -1, POLLIN, 0}};
  const size_t fixed = polled.size();
  if (presses) {
    for (int listener : server.sockets.listeners) polled.push_back({listener, POLLIN, 0});
  }
  const size_t firstMessage = polled.size();
  for (const Message &message : server.messages) polled.push_back({message.sock, POLLIN, 0});
  if (poll(polled.data(), polled.size(), pollTimeout(now, wake)) > 0) {
    if (polled[1].revents != 0) obey(server);
    if (polled[0].revents != 0) reapChildren(server);
    if (uint64_t pokes; polled[2].revents != 0) static_cast<void>(!read(server.pool.poke, &pokes, sizeof pokes));
    const std::span waited(polled.data() + fixed, firstMessage - fixed);
    const bool anyWaits = std::ranges::any_of(waited, [](const pollfd &listener) { return listener.revents != 0; });
    if (anyWaits && isCrowded(server.pool, *server.board))
      pressIdle(server.pool, server.sockets.listeners, milliseconds());
    size_t i = firstMessage;
    std::erase_if(server.messages, [&](Message &message) { return polled[i++].revents != 0 && readMessage(message); });
    if (polled[3].revents != 0 && server.sockets.notify >= 0) acceptMessages(server.sockets.notify, server.messages);
  } else if (presses) {
    releaseIdle(server.pool); /* nobody waits any more */
  }
  tellRetired(server);
  dropLateMessages(server.messages, milliseconds());
  meetDeadline(server);
}

/* Commands come from the supervisor alone, over the control socket; SIGTERM too reaches a whole group of processes. */
bool takeSignals(Server &server) {
  /* A worker that is woken before it is ready to be looks at what it was woken for anyway. */
  for (int ignored : {SIGHUP, SIGINT, SIGTERM, SIGPIPE, wakeSignal}) signal(ignored, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  sigprocmask(SIG_SETMASK, &set, nullptr);
  server.signals = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  return server.signals >= 0;
}

/* What every worker would load or look up for itself, done once before the first fork: the resolver's libraries and
   files, and the time zone's, which the C library otherwise asks for with every time it prints. */
void warmUp() {
  setenv("TZ", ":/etc/localtime", 0);
  tzset();
  gethostbyname("localhost");
  if (addrinfo *found = nullptr; getaddrinfo("localhost", nullptr, nullptr, &found) == 0) freeaddrinfo(found);
  in_addr loopback{htonl(INADDR_LOOPBACK)};
  gethostbyaddr(&loopback, sizeof loopback, AF_INET);
}

}  // namespace

int serveClients(const ServerSockets &sockets, Board *board, int slot) {
  Server server{sockets, board, slot};
  warmUp();
  sweepScanFiles();
  netsift_keepState();
  if (!makePool(server.pool, sockets.idleSemaphore) || !takeSignals(server) || !tell(server, readyMessage)) {
    say(std::string("cannot serve: ") + std::strerror(errno));
    return 1;
  }
  while (server.phase == Phase::serving || !server.pool.workers.empty() || server.relay > 0) serveRound(server);
  return 0;
}

}  // namespace netsift::host
