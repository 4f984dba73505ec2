#include "connection/trace.h"

#include <ctime>

#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/connection.h"

namespace netsift {

void traceRequestHead() {
  dprintf(5, "-------------------start of reqheader------------------------------\n");
  traceHeadLines(reqheader);
  dprintf(5, "-------------------end of reqheader------------------------------\n");
}

void traceHost(const Request &request) {
  dprintf(1, "The hostname id is [ %s ]\n", peerText(request.hostname.c_str()));
}

void tracePassed(const Request &request) {
  dprintf(4, "URL is [%s], port is [%u], host is [%s]\n", peerText(request.url.c_str()), request.port,
          peerText(request.hostname.c_str()));
}

void traceMiss(const Cycle &cycle) {
  const char *url = cycle.request.url.c_str();
  dprintf(7, "%10d %ld %s TCP_MISS/200 %d %s %s - %s %s\n", static_cast<int>(time(nullptr)),
          static_cast<long>(cycle.responseLength), clientip, cycle.responseCode, cycle.request.method.c_str(),
          peerText(url), peerText(url), peerText(cycle.contentType.get()));
}

}  // namespace netsift
