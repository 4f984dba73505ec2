#include "scan/tunnel.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/debugLog.h"
#include "scan/relay.h"
#include "state/connection.h"
#include "util/installPath.h"

using namespace netsift;

namespace {

constexpr size_t transcriptPathSize = 256;

/* What sets the three apart beside the transcript. */
struct Style {
  const char *name;
  const char *closingName; /* before the closing line */
  const char *proxyDashes; /* in the trace of the upstream's turns */
  bool oneBlock;           /* ends when a side has been seen once, and leaves the client's bytes unread */
};
constexpr Style plainStyle{"tunnel", "tunnel(): ", "----->", false};
constexpr Style oneBlockStyle{"tunnel1", "tunnel1(): ", "---->", true};
constexpr Style transcriptStyle{"tunnellog", "", "----->", false};

/* `transcript` may be null here and below: none is kept. */
void record(FILE *transcript, const char *marker, const Relay &relay, const Outcome &read) {
  if (transcript == nullptr) return;
  std::fputs(marker, transcript);
  if (read.result > 0) std::fwrite(relay.block, 1, static_cast<size_t>(read.result), transcript);
}

Pass relayClient(Relay &relay, FILE *transcript) {
  const Outcome read = readBlock(relay.client, relay);
  record(transcript, "\nClient:", relay, read);
  if (const Pass pass = afterRead(read); pass != Pass::goOn) return pass;
  countClientTurn(relay.turns);
  return forwardBlock(relay.upstream, relay, read.result);
}

Pass relayUpstream(Relay &relay, FILE *transcript) {
  dprintf(7, "reading from proxy++------>\n");
  const Outcome read = readBlock(relay.upstream, relay);
  record(transcript, "\nProxy:", relay, read);
  logUpstreamRead(read);
  if (const Pass pass = afterRead(read); pass != Pass::goOn) return pass;
  countProxyTurn(relay.turns);
  return forwardBlock(relay.client, relay, read.result);
}

int32_t run(const Style &style, int client, int upstream, int timeout, FILE *transcript) {
  dprintf(7, "inside %s\n", style.name);
  Relay relay{client, upstream, timeout, style.oneBlock ? nullptr : style.name, {}, {}};
  const Turns &turns = relay.turns;

  auto finished = [&] {
    if (style.oneBlock && (turns.client == 1 || turns.proxy == 1)) return true;
    dprintf(7, "\n no. of client---->%d\n", turns.client);
    dprintf(7, "\n no  of proxy%s%d\n", style.proxyDashes, turns.proxy);
    return false;
  };
  auto fromClient = [&] {
    if (!style.oneBlock) return relayClient(relay, transcript);
    relay.turns.client++;
    return Pass::goOn;
  };
  auto fromUpstream = [&] { return relayUpstream(relay, transcript); };

  if (!relayLoop(relay, finished, fromClient, fromUpstream)) {
    dprintf(4, "%sin tunnel times read from client %d, times read from proxy %d\n", style.closingName, turns.client,
            turns.proxy);
  }
  return 0;
}

/* The client's transcript with the line that starts a relay, or null. */
FILE *openTranscript() {
  const Text path = installPath({logFolder, clientip, ".log"});
  if (!path) {
    dprintf(4, "Malloc failed while logging Tunnel\n");
    return nullptr;
  }
  if (std::strlen(path.get()) >= transcriptPathSize) {
    dprintf(4, "path of the tunnel file is too long, no transcript is kept\n");
    return nullptr;
  }
  FILE *transcript = std::fopen(path.get(), "a");
  if (transcript == nullptr) {
    std::fputs("error opening tunnel file", stdout);
    std::fflush(stdout);
    return nullptr;
  }
  const time_t now = std::time(nullptr);
  char stamp[64] = "";
  ctime_r(&now, stamp);
  stamp[std::strcspn(stamp, "\n")] = '\0';
  std::fprintf(transcript, "\n%s %s ::New Tunnel Started---> \n", stamp, clientip);
  return transcript;
}

}  // namespace

int32_t tunnel(int client, int upstream, int timeout) { return run(plainStyle, client, upstream, timeout, nullptr); }

int32_t tunnel1(int client, int upstream, int timeout) {
  return run(oneBlockStyle, client, upstream, timeout, nullptr);
}

int32_t tunnellog(int client, int upstream, int timeout) {
  FILE *transcript = openTranscript();
  run(transcriptStyle, client, upstream, timeout, transcript);
  if (transcript != nullptr) std::fclose(transcript);
  return 0;
}
