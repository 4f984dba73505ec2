#include "host/handOver.h"

#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "host/hostConfig.h"
#include "netsift.h"

namespace netsift::host {

namespace {

int relaySock = -1;
const Board *sharedBoard;
uint32_t connectionNumber;
bool handedOver;

bool sendOffer(const TunnelOffer &offer, size_t textSize, const int (&sockets)[2]) {
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof sockets)] = {};
  struct iovec bytes {
    const_cast<TunnelOffer *>(&offer), offsetof(TunnelOffer, text) + textSize
  };
  struct msghdr message {};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  struct cmsghdr *rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof sockets);
  std::memcpy(CMSG_DATA(rights), sockets, sizeof sockets);
  return sendmsg(relaySock, &message, MSG_DONTWAIT | MSG_NOSIGNAL) > 0;
}

/* Where the relay process cannot take it, full or gone, the tunnel stays with its worker. */
int32_t offerTunnel(int32_t client, int32_t upstream, int32_t idleSeconds, const char *url) {
  if (allTunnels(*sharedBoard) >= hostConfig.maxTunnels) return 0;
  TunnelOffer offer{idleSeconds, connectionNumber, {}};
  std::snprintf(offer.text, longestTunnelText, "Client IP:%s,URL:%s", clientip, url);
  const size_t length = std::strlen(offer.text) + 1;
  const uint32_t packed = netsift_packRecord(offer.text + length, static_cast<uint32_t>(sizeof offer.text - length));
  handedOver = sendOffer(offer, length + packed, {client, upstream});
  return handedOver ? 1 : 0;
}

}  // namespace

void handOverTunnels(int sock, const Board *board) {
  relaySock = sock;
  sharedBoard = board;
  netsift_handOver = offerTunnel;
}

void numberTunnel(uint32_t number) { connectionNumber = number; }

bool wasHandedOver() { return std::exchange(handedOver, false); }

}  // namespace netsift::host
