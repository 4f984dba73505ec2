/* A generation of the server: the process that holds one loading of configuration and lists and forks the workers that
   serve connections. The supervisor starts it, retires it when a newer one serves, and ends it. */
#ifndef NETSIFT_HOST_SERVER_H
#define NETSIFT_HOST_SERVER_H

#include <vector>

#include "host/pool.h"

namespace netsift::host {

/* What the supervisor says over the control socket, a byte each. Its end counts as `drain`: the supervisor is gone. */
enum Command : char {
  retire = 'r', /* take no more clients; running connections go on to their end */
  drain = 't',  /* take no more clients; running connections get drain_seconds */
  stop = 'k'    /* end running connections now */
};
/* What a generation says: that its lists are loaded and it serves, and that it takes no more clients. */
constexpr char readyMessage = 'R', retiredMessage = 'D';

struct ServerSockets {
  std::vector<int> listeners; /* clients; non-blocking, shared with other generations */
  int notify;                 /* the notification socket, or -1 */
  int control;                /* to the supervisor */
  int idleSemaphore;          /* eventfd that the connections of all generations watch while they are idle */
};

/* Serves until it was told to end and no connection is left. Returns 0, or 1 when it cannot serve. */
int serveClients(const ServerSockets &sockets, Board *board, int slot);

}  // namespace netsift::host

#endif
