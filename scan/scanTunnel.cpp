#include "scan/scanTunnel.h"

#include <cstdio>
#include <cstring>

#include "http/httpHeader.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/resultLine.h"
#include "pages/answer.h"
#include "scan/relay.h"
#include "scan/scanSpool.h"
#include "scan/virusScan.h"
#include "state/connection.h"
#include "state/settings.h"

using namespace netsift;

namespace {

constexpr int32_t contentBlocked = -9;

/* One body on its way, for one call. */
struct Download {
  Relay relay;
  int useVlav, useVlcav;
  uint32_t contentLength, threshold;
  uint32_t spooled = 0;
  bool headerSent = false;
  bool blocked = false;
  int32_t verdict = 0;
  char virus[256] = "";
};

Pass relayClient(Relay &relay) {
  const Outcome read = readBlock(relay.client, relay);
  dprintf(1, "URL:%s,NUMBER OF BYTES %ld\n", peerText(url), static_cast<long>(read.result));
  if (const Pass pass = afterRead(read); pass != Pass::goOn) return pass;
  countClientTurn(relay.turns);
  return forwardBlock(relay.upstream, relay, read.result);
}

Pass deliver(Download &download, ssize_t size) {
  if (!download.headerSent) {
    if (sendHeader(download.relay.client, &respheader) == 0) {
      dprintf(7, "Client closed connection while receiving reponse header\n");
      return Pass::end;
    }
    download.headerSent = true;
  }
  return forwardBlock(download.relay.client, download.relay, size);
}

Pass block(Download &download, const char *why) {
  std::snprintf(reason, sizeof reason, "%s", why);
  download.blocked = true;
  if (download.verdict == 1) {
    storeLog("Virus", "Infected Content", 0);
    dprintf(2, "Content is infected3\n");
    logBlocked(url, std::string("Infected Content:Virus-") + peerText(download.virus));
  }
  blockConnection(download.relay.client, 1);
  return Pass::end;
}

/* The block in hand has reached the tail: it is released only when all that was spooled is clean. */
Pass scanAndRelease(Download &download, ssize_t size) {
  dprintf(7, "ret=[%d]------------->\n", download.verdict);
  download.verdict = isVirusInfection(virfilename, download.virus, download.useVlav, download.useVlcav);
  switch (download.verdict) {
    case 0:
      dprintf(7, "File is clean and sending data to client\n");
      return deliver(download, size);
    case -1:
      dprintf(2, "--Anti Virus Server is not running\n");
      return block(download, "Anti Virus Server Not Running\n");
    case -2:
    case -3:
      dprintf(2, "Error in scanning for virus\n");
      return block(download, "Error In Scanning For Virus\n");
    case 1:
      return block(download, "Content is infected\n");
    default:
      return Pass::goOn;
  }
}

Pass relayUpstream(Download &download) {
  dprintf(7, "reading from proxy++------>\n");
  const Outcome read = readBlock(download.relay.upstream, download.relay);
  logUpstreamRead(read);
  if (const Pass pass = afterRead(read); pass != Pass::goOn) return pass;
  countProxyTurn(download.relay.turns);

  if (!appendToSpool(download.relay.block, static_cast<size_t>(read.result))) return Pass::end;
  download.spooled += static_cast<uint32_t>(read.result);
  dprintf(7, "%d: sizeof Temp virfile %s == %d\n", __LINE__, virfilename, static_cast<int>(download.spooled));
  const bool tail = download.spooled >= download.threshold || download.spooled == download.contentLength;
  return tail ? scanAndRelease(download, read.result) : deliver(download, read.result);
}

int32_t askBoth(const char *path, char *name) {
  dprintf(7, "Using VLAV and VLCAV For AV Scanning.\n");
  const int32_t first = Scan(path, name);
  dprintf(7, "Scan result from VLAV %d\n", first);
  if (first == 1) return 1;
  const int32_t second = isInfectedclam(path);
  dprintf(7, "Scan result from VLCAV %d\n", second);
  if (first >= -3 && first <= -1) return second;
  return first == 0 && second == 1 ? 1 : 0;
}

}  // namespace

int32_t tunnel_vs(int client, int upstream, int timeout, int useVlav, int useVlcav, unsigned contentLength,
                  unsigned threshold) {
  dprintf(7, "inside tunnel_vs\n");
  nameSpool();
  Download download{{client, upstream, timeout, "tunnel_vs", {}, {}}, useVlav, useVlcav, contentLength, threshold};
  const Turns &turns = download.relay.turns;

  auto finished = [&] {
    dprintf(7, "\n no. of client---->%d\n", turns.client);
    dprintf(7, "\n no  of proxy----->%d\n", turns.proxy);
    return false;
  };
  relayLoop(
      download.relay, finished, [&] { return relayClient(download.relay); }, [&] { return relayUpstream(download); });
  if (download.blocked) return contentBlocked;
  dprintf(4, "in tunnel times read from client %d, times read from proxy %d\n", turns.client, turns.proxy);
  return 0;
}

int32_t isVirusInfection(const char *path, char *name, int useVlav, int useVlcav) {
  if (useVlav == 1 && useVlcav == 1) return askBoth(path, name);
  int32_t verdict = 0;
  if (useVlav == 1) {
    dprintf(7, "Using VLAV For AV Scanning.\n");
    verdict = Scan(path, name);
    dprintf(7, "Scan result from VLAV %d\n", verdict);
  } else if (useVlcav == 1) {
    dprintf(7, "Using VLCAV For AV Scanning.\n");
    verdict = isInfectedclam(path);
    dprintf(7, "Scan result from CLAM %d\n", verdict);
  }
  return verdict;
}
