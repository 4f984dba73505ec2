/* The daemon's own process: it holds the listening sockets and no lists, and starts a generation of the server for each
   loading of the configuration. SIGHUP starts one more, which takes over once all is loaded; when something is wrong,
   it says so and ends, and the one before has served on all the time. The memory of old lists goes with the process
   that held them. */
#ifndef NETSIFT_HOST_SUPERVISOR_H
#define NETSIFT_HOST_SUPERVISOR_H

#include <string>
#include <vector>

#include "util/socketAddress.h"

namespace netsift::host {

constexpr int exitTrouble = 1, exitConfiguration = 2;

/* Runs the daemon until SIGTERM or SIGINT. `listen`, unless it is empty, goes before the configuration's
   addresses. Returns the exit status:
   0 after an orderly end, 2 when configuration, lists or installation are not in order, 1 for other trouble. */
int supervise(const std::string &configuration, const std::vector<SocketAddress> &listen);

}  // namespace netsift::host

#endif
