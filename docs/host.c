/* The smallest useful host: `host PORT ROOT` serves 127.0.0.1:PORT, a process per connection, ROOT as installroot. */
#include <arpa/inet.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "netsift.h"

char popupblocker[] = "<script>window.open=function(){return null}</script>"; /* the library wants these two of us */
int32_t popuplen = sizeof popupblocker - 1;

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  signal(SIGPIPE, SIG_IGN); /* a client that has gone must be a failed write, not the end of the process */
  signal(SIGCHLD, SIG_IGN); /* children are reaped by the kernel */

  installroot = argv[2]; /* settings and lists first, once, before any fork */
  StrictHttp = 1;
  PROXY_TIMEOUT = 60;
  disableCache = 1;
  block_ports = 1;
  blockedports[0] = 25;
  enable_whitelist = makeWhiteList() == 1;

  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons((uint16_t)atoi(argv[1]))};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &(int){1}, sizeof(int));
  if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 64) != 0) return 1;
  for (;;) {
    socklen_t length = sizeof clientaddr;
    clientsock = accept(listener, (struct sockaddr *)&clientaddr, &length);
    if (clientsock >= 0 && fork() == 0) {
      connectionHandle();            /* from the connection's first request to its end */
      shutdown(clientsock, SHUT_WR); /* the library closes no socket; leave the client a moment to read the answer */
      alarm(2);
      for (char rest[4096]; read(clientsock, rest, sizeof rest) > 0;) continue;
      _exit(0);
    }
    close(clientsock);
  }
}
