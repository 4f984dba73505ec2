#include "log/resultLine.h"

#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/connection.h"

namespace netsift {

void logOutcome(const char *url, const char *status, const std::string &what) {
  dprintf(1, "Client IP:%s,URL:%s,STATUS:%s,%s\n", clientip, peerText(url), status, what.c_str());
}

void logBlocked(const char *url, const std::string &what) { logOutcome(url, "BLOCKED", what); }

void logDelivered(const char *url, long size) {
  dprintf(1, "Client IP:%s,SIZE:%ld,URL:%s,STATUS:DELIVERED\n", clientip, size, peerText(url));
}

void logTunneled(const char *url) {
  dprintf(1, "Client IP:%s,CONTENT TYPE:UNKNOWN,HOST NAME:UNKNOWN,REQUESTED URL:%s\n", clientip, peerText(url));
  logOutcome(url, "TUNNELED", "HTTPS REQUEST");
}

void logRequested(const char *type, const char *host, const char *url) {
  dprintf(1, "Client IP:%s,CONTENT TYPE:%s,HOST NAME:%s,REQUESTED URL:%s\n", clientip, peerText(type), peerText(host),
          peerText(url));
}

void logKnown(const char *url, const char *what) {
  dprintf(7, "URL:%s,STATUS:BLOCKED,%s(In cache db)\n", peerText(url), what);
}

}  // namespace netsift
