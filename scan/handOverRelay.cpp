#include "scan/handOverRelay.h"

#include "log/peerText.h"
#include "scan/handOver.h"
#include "scan/tunnel.h"

void netsift::handOverRelay(int client, int upstream, int idleSeconds, const char *url) {
  if (netsift_handOver != nullptr && netsift_handOver(client, upstream, idleSeconds, peerText(url)) == 1) return;
  tunnel(client, upstream, idleSeconds);
}
