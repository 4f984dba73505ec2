#include "scan/handOverRelay.h"

#include "log/peerText.h"
#include "log/requestRecord.h"
#include "scan/handOver.h"
#include "scan/tunnel.h"

void netsift::handOverRelay(int client, int upstream, int idleSeconds, const char *url) {
  record.isMoved = netsift_handOver != nullptr && netsift_handOver(client, upstream, idleSeconds, peerText(url)) == 1;
  if (!record.isMoved) tunnel(client, upstream, idleSeconds);
}
