#include "connection/messenger.h"

#include <cstring>

#include "scan/tunnel.h"
#include "state/settings.h"

namespace netsift {
namespace {

bool isMessengerUrl(const char *url) {
  for (char(&fragment)[100] : tunnellist) {
    size_t length = strnlen(fragment, sizeof fragment - 1);
    while (length > 0 && fragment[length - 1] == ' ') length--;
    fragment[length] = '\0';
    if (length == 0) return false;
    if (std::strstr(url, fragment) != nullptr) return true;
  }
  return false;
}

}  // namespace

bool isMessenger(const Request &request) {
  if (tunnelmessengers == 0 || !isMessengerUrl(request.url.c_str())) return false;
  return request.resolvedUrl.empty() || isMessengerUrl(request.resolvedUrl.c_str());
}

Next relayMessenger(Connection &connection) {
  const Ends &ends = connection.ends;
  if (logtunnel != 0) {
    tunnellog(ends.client, ends.upstream, noTimeout);
  } else {
    tunnel(ends.client, ends.upstream, noTimeout);
  }
  return endCall(connection, 1);
}

}  // namespace netsift
