/* A host that serves with four processes, each one connection after another: `workers PORT ROOT`. */
#include <arpa/inet.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "netsift.h"

char popupblocker[] = "<script>window.open=function(){return null}</script>";
int32_t popuplen = sizeof popupblocker - 1;

static void serveMany(int listener) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);               /* not without the process that started it */
  for (int served = 0; served < 1000; served++) { /* and a fresh one takes its place now and then */
    socklen_t length = sizeof clientaddr;
    clientsock = accept(listener, (struct sockaddr *)&clientaddr, &length);
    if (clientsock < 0) continue;
    connectionHandle();
    shutdown(clientsock, SHUT_WR);
    setsockopt(clientsock, SOL_SOCKET, SO_RCVTIMEO, &(struct timeval){.tv_sec = 2}, sizeof(struct timeval));
    for (char rest[4096]; read(clientsock, rest, sizeof rest) > 0;) continue;
    netsift_resetState(listener + 1); /* closes the client's socket and all that connectionHandle has opened */
  }
  _exit(0);
}

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  signal(SIGPIPE, SIG_IGN);
  installroot = argv[2];
  StrictHttp = 1;
  PROXY_TIMEOUT = 60;
  disableCache = 1;
  block_ports = 1;
  blockedports[0] = 25;
  enable_whitelist = makeWhiteList() == 1;
  netsift_keepState(); /* settings and lists stand: this is what each connection begins with */

  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons((uint16_t)atoi(argv[1]))};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &(int){1}, sizeof(int));
  if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 64) != 0) return 1;
  for (int running = 0;; running--) {
    for (; running < 4; running++) {
      if (fork() == 0) serveMany(listener);
    }
    wait(NULL);
  }
}
