#include "connection/strict/keptUpstreams.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "connection/connectionReset.h"
#include "connection/publish.h"
#include "state/settings.h"

namespace netsift {
namespace {

std::array<Upstream, std::tuple_size_v<decltype(Connection::upstreams)>> keptUpstreamSockets;

void drop(Upstream &upstream) {
  if (upstream.fd >= 0) close(upstream.fd);
  upstream = {};
}

}  // namespace

void takeKept(Connection &connection) {
  if (KeepUpstreamSeconds <= 0) return;
  const auto oldest = std::chrono::steady_clock::now() - std::chrono::seconds(KeepUpstreamSeconds);
  for (Upstream &each : keptUpstreamSockets) {
    if (each.fd >= 0 && each.lastUsed < oldest) drop(each);
  }
  connection.upstreams = std::exchange(keptUpstreamSockets, {});
}

void keepUpstreams(Connection &connection) {
  const int current = connection.ends.upstream;
  if (KeepUpstreamSeconds <= 0) {
    for (const Upstream &each : connection.upstreams) {
      if (each.fd >= 0 && each.fd != current) close(each.fd);
    }
    return;
  }
  for (Upstream &each : connection.upstreams) {
    if (each.isPersonal) drop(each);
  }
  keptUpstreamSockets = std::exchange(connection.upstreams, {});
  publishUpstream(connection, -1);
}

std::vector<int> keptDescriptors() {
  std::vector<int> descriptors;
  for (const Upstream &each : keptUpstreamSockets) {
    if (each.fd >= 0) descriptors.push_back(each.fd);
  }
  std::sort(descriptors.begin(), descriptors.end());
  return descriptors;
}

}  // namespace netsift

void netsift_releaseUpstreams(void) {
  for (netsift::Upstream &each : netsift::keptUpstreamSockets) netsift::drop(each);
}
