#include "host/child.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "host/clock.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr size_t mostDrained = 65536;
constexpr int64_t drainMilliseconds = 2000;
constexpr int requestSeconds = 10; /* what a client has for its request head */
enum Level { unfiltered = 1, filtered = 2 };

/* The terminal's Ctrl-C and hang-up go to the whole process group: the daemon alone decides what becomes of
   connections. */
void resetSignals() {
  signal(SIGINT, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGTERM, SIG_DFL);
  signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
}

/* The client hears why, but only as the answer to a request: a browser drops what comes before it asked. */
void refuseClient(int level) {
  inet_ntop(AF_INET, &clientaddr.sin_addr, clientip, sizeof clientip);
  if (getHeader(clientsock, &reqheader, requestSeconds) == 0) return;
  unsigned port = 0;
  char *host = nullptr;
  url = getURL(reqheader.first, &port, &host);
  hostname = host;
  std::snprintf(reason, sizeof reason, "%s may not use this proxy at this time", clientip);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,Access List:level %d\n", clientip, url == nullptr ? "" : url, level);
  sendError(clientsock);
}

}  // namespace

void closeGently(int sock) {
  shutdown(sock, SHUT_WR);
  int64_t deadline = milliseconds() + drainMilliseconds;
  for (size_t drained = 0; drained < mostDrained;) {
    int64_t left = deadline - milliseconds();
    struct pollfd readable {
      sock, POLLIN, 0
    };
    if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0) break;
    char block[8192];
    ssize_t count = recv(sock, block, sizeof block, MSG_DONTWAIT);
    if (count <= 0) break;
    drained += static_cast<size_t>(count);
  }
  close(sock);
}

void serveConnection(int sock, const struct sockaddr_in &peer) {
  resetSignals();
  clientsock = sock;
  clientaddr = peer;
  int level = getAccessControl(peer.sin_addr.s_addr); /* in network order, as the rules are */
  if (level == unfiltered) DisableNetsiftService = 1;
  if (level <= filtered)
    connectionHandle();
  else
    refuseClient(level);
  closeGently(sock);
  _exit(0);
}

void removeScanFile(int pid) {
  if (virusscan == 0) return;
  char path[sizeof VIRFILE_DIR + 32];
  std::snprintf(path, sizeof path, "%sscanfile.%d", VIRFILE_DIR, pid);
  unlink(path);
}

}  // namespace netsift::host
