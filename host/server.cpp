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
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/child.h"
#include "host/clock.h"
#include "host/hostConfig.h"
#include "host/notify.h"
#include "host/problems.h"
#include "host/scanFiles.h"

namespace netsift::host {

namespace {

constexpr int acceptBurst = 32;                /* clients taken before the other descriptors are looked at again */
constexpr int64_t acceptPause = 1000;          /* after the system was out of processes, descriptors or memory */
constexpr int64_t otherGenerationsPause = 200; /* how often to look whether older generations made room */
constexpr int64_t killMilliseconds = 1000;     /* from SIGTERM to SIGKILL */

enum class Phase { serving, retired, draining, ending, killing };

struct Server {
  ServerSockets sockets;
  Board *board;
  int slot;
  int signals = -1;
  Phase phase = Phase::serving;
  int64_t deadline = INT64_MAX; /* of the phases draining and ending */
  int64_t acceptFrom = 0;
  int heldSock = -1; /* a client that was accepted and still waits for a process */
  struct sockaddr_in heldPeer {};
  std::unordered_set<pid_t> children;
  Messages messages;
};

int32_t allConnections(const Server &server) {
  int32_t sum = 0;
  for (const auto &count : server.board->connections) sum += count;
  return sum;
}

bool hasRoom(const Server &server) { return allConnections(server) < hostConfig.maxConnections; }

void pauseAccepting(Server &server, const char *what) {
  say(std::string(what) + ": " + std::strerror(errno) + "; clients wait a second");
  server.acceptFrom = milliseconds() + acceptPause;
}

[[noreturn]] void becomeChild(const Server &server, int sock, const struct sockaddr_in &peer) {
  for (int fd : {server.sockets.listener, server.sockets.notify, server.sockets.control, server.signals}) {
    if (fd >= 0) close(fd);
  }
  for (const Message &message : server.messages) close(message.sock);
  serveConnection(sock, peer);
}

/* Takes the next client, unless the last one still waits. False when there is none. */
bool takeClient(Server &server) {
  if (server.heldSock >= 0) return true;
  if (server.sockets.listener < 0) return false;
  socklen_t length = sizeof server.heldPeer;
  server.heldSock =
      accept4(server.sockets.listener, reinterpret_cast<struct sockaddr *>(&server.heldPeer), &length, SOCK_CLOEXEC);
  if (server.heldSock >= 0) return true;
  bool nobody = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
  if (!nobody) pauseAccepting(server, "a client cannot be taken");
  return false;
}

/* A client that no process can be started for stays, and is the first to be served afterwards. */
void acceptClients(Server &server) {
  for (int i = 0; i < acceptBurst && hasRoom(server) && takeClient(server); i++) {
    pid_t child = fork();
    if (child == 0) becomeChild(server, server.heldSock, server.heldPeer);
    if (child < 0) return pauseAccepting(server, "no process can be started for a client");
    server.children.insert(child);
    server.board->connections[server.slot]++;
    close(std::exchange(server.heldSock, -1));
  }
}

void reapChildren(Server &server) {
  struct signalfd_siginfo info;
  while (read(server.signals, &info, sizeof info) > 0) continue;
  int status;
  for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
    if (server.children.erase(child) == 0) continue;
    server.board->connections[server.slot]--;
    removeScanFile(child);
    if (WIFSIGNALED(status) && WTERMSIG(status) != SIGTERM && WTERMSIG(status) != SIGKILL)
      say("a connection's process (" + std::to_string(child) + ") ended by signal " + std::to_string(WTERMSIG(status)));
  }
}

void signalChildren(const Server &server, int signal) {
  for (pid_t child : server.children) kill(child, signal);
}

void closeSocket(int &sock) {
  if (sock >= 0) close(sock);
  sock = -1;
}

void endConnections(Server &server) {
  signalChildren(server, SIGTERM);
  closeSocket(server.heldSock);
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
  closeSocket(server.sockets.listener);
  if (command == retire) { /* the next generation takes over the reports too */
    closeSocket(server.sockets.notify);
    server.phase = Phase::retired;
    tell(server, retiredMessage);
  } else if (command == stop) {
    endConnections(server);
  } else if (server.phase == Phase::serving || server.phase == Phase::retired) {
    server.phase = Phase::draining;
    server.deadline = milliseconds() + int64_t{1000} * hostConfig.drainSeconds;
  }
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

/* Whether clients are to be waited for; when not although they could come, `wake` is when to look again. */
bool wantsClients(const Server &server, int64_t now, int64_t *wake) {
  if (server.sockets.listener < 0 && server.heldSock < 0) return false;
  if (now < server.acceptFrom) {
    *wake = std::min(*wake, server.acceptFrom);
    return false;
  }
  if (hasRoom(server)) return true;
  bool ownAlone = static_cast<int32_t>(server.children.size()) >= hostConfig.maxConnections;
  if (!ownAlone) *wake = std::min(*wake, now + otherGenerationsPause);
  return false;
}

int pollTimeout(int64_t now, int64_t wake) {
  if (wake == INT64_MAX) return -1;
  return static_cast<int>(std::clamp<int64_t>(wake - now, 0, INT32_MAX));
}

/* One round: wait, then do what has come. The messages' descriptors stand last, in their order. */
void serveRound(Server &server) {
  int64_t now = milliseconds(), wake = server.deadline;
  for (const Message &message : server.messages) wake = std::min(wake, message.deadline);
  bool clients = wantsClients(server, now, &wake);
  bool messages = server.messages.size() < mostMessages;
  std::vector<struct pollfd> polled = {{server.signals, POLLIN, 0},
                                       {server.sockets.control, POLLIN, 0},
                                       {clients ? server.sockets.listener : -1, POLLIN, 0},
                                       {messages ? server.sockets.notify : -1, POLLIN, 0}};
  size_t fixed = polled.size();
  for (const Message &message : server.messages) polled.push_back({message.sock, POLLIN, 0});
  if (clients && server.heldSock >= 0) wake = now;
  int ready = poll(polled.data(), polled.size(), pollTimeout(now, wake));
  if (ready > 0) {
    if (polled[1].revents != 0) obey(server);
    if (polled[0].revents != 0) reapChildren(server);
    size_t i = fixed;
    std::erase_if(server.messages, [&](Message &message) { return polled[i++].revents != 0 && readMessage(message); });
    if (polled[3].revents != 0 && server.sockets.notify >= 0) acceptMessages(server.sockets.notify, server.messages);
  }
  if (ready >= 0 && clients && (server.heldSock >= 0 || polled[2].revents != 0)) acceptClients(server);
  dropLateMessages(server.messages, milliseconds());
  meetDeadline(server);
}

/* Commands come from the supervisor alone, over the control socket; SIGTERM too reaches a whole group of processes. */
bool takeSignals(Server &server) {
  for (int ignored : {SIGHUP, SIGINT, SIGTERM, SIGPIPE}) signal(ignored, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  sigprocmask(SIG_SETMASK, &set, nullptr);
  server.signals = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  return server.signals >= 0;
}

/* What every child would load or look up for itself, done once before the first fork: the resolver's libraries and
   files, and the time zone's, which the C library otherwise asks for with every time it prints. */
void warmUp() {
  setenv("TZ", ":/etc/localtime", 0);
  tzset();
  gethostbyname("localhost");
  in_addr loopback{htonl(INADDR_LOOPBACK)};
  gethostbyaddr(&loopback, sizeof loopback, AF_INET);
}

}  // namespace

int serveClients(const ServerSockets &sockets, Board *board, int slot) {
  Server server{sockets, board, slot};
  warmUp();
  sweepScanFiles();
  if (!takeSignals(server) || !tell(server, readyMessage)) {
    say(std::string("cannot serve: ") + std::strerror(errno));
    return 1;
  }
  while (server.phase == Phase::serving || !server.children.empty() || server.heldSock >= 0) serveRound(server);
  return 0;
}

}  // namespace netsift::host
