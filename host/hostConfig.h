/* What the configuration says to the daemon itself; everything else of it goes into the library's own variables. */
#ifndef NETSIFT_HOST_HOSTCONFIG_H
#define NETSIFT_HOST_HOSTCONFIG_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/accessRules.h"
#include "util/socketAddress.h"

namespace netsift::host {

struct HostConfig {
  std::vector<SocketAddress> listen; /* [listen] address, or --listen */
  int32_t loadSeconds = 0;           /* after which a loading is given up */
  int32_t maxConnections = 0;        /* served at once, over all generations of the server */
  int32_t connectionsPerClient = 0;  /* at once; 0: as many as there are */
  int32_t connectionsPerProcess = 0; /* one after another */
  int32_t spareProcesses = 0;        /* that wait for clients */
  int32_t maxTunnels = 0;            /* 0: they stay with the process that served the request */
  int32_t drainSeconds = 0;          /* what running connections get at the end */
  std::string popupScript;           /* file; a relative name lies in the configuration folder */
  std::string secondEngineSocket;    /* where the second engine listens */
  std::string debugFile;             /* a relative name lies in the log folder */
  std::string debugTag;              /* put before every line of the debug log */
  int32_t debugLevel = 0;
  int32_t logRequests = 0;
  std::string requestFile; /* a relative name lies in the log folder */
  int32_t requestFormat = 0;
  int32_t cutQueries = 0;
  std::string metricsListen; /* ADDRESS:PORT; empty: nowhere */
  int32_t keepCache = 0;     /* 1: verdicts of earlier loadings stay */
  std::vector<SixRule> sixRules;
};

/* The configuration of this process: a generation of the server reads it once and never changes it. */
extern HostConfig hostConfig;

}  // namespace netsift::host

#endif
