#include "host/tunnelRelay.h"

#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "host/clock.h"
#include "host/handOver.h"
#include "host/hostConfig.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr size_t blockSize = 65536;
constexpr int mostBlocks = 4;  /* of one direction before the others have their turn */
constexpr int mostOffers = 64; /* taken in one round */
constexpr int mostEvents = 256;
constexpr uint64_t offersMark = UINT64_MAX; /* no tunnel's */
constexpr int64_t checkPause = 1000;        /* at least, from one look for idle tunnels to the next */

/* One direction. Events come once for each change, so that what was told is kept until it was used up. */
struct Way {
  std::unique_ptr<char[]> rest; /* what the receiver did not take yet */
  uint32_t restFrom = 0, restEnd = 0;
  bool readable = true, sawEnd = false; /* the sender: bytes may wait, and the end behind them */
  bool ended = false;                   /* the end was passed on */
  uint64_t bytes = 0;
};

struct Tunnel {
  int sockets[2]; /* client, upstream; -1: the record is free */
  Way ways[2];    /* from the socket of the same place to the other */
  int32_t idleSeconds;
  uint32_t number;
  int64_t began, active;
  std::string text;
  std::string record; /* packed */
};

struct Relay {
  int offers; /* -1 after its end */
  std::atomic<int32_t> &count;
  int events = -1;
  std::vector<std::unique_ptr<Tunnel>> tunnels;
  std::vector<uint32_t> freeRecords, endedRecords; /* the latter are free after the round: events may still name them */
  std::vector<uint32_t> again;                     /* tunnels with bytes left to read */
  int64_t checkAt = INT64_MAX;
  int64_t now = 0;
};

char block[blockSize]; /* every tunnel's, between a read and its write */

/* Sends what stands of the rest. False when the receiver has gone. */
bool flush(Tunnel &tunnel, int from, int64_t now) {
  Way &way = tunnel.ways[from];
  ssize_t sent = send(tunnel.sockets[1 - from], way.rest.get() + way.restFrom, way.restEnd - way.restFrom,
                      MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EINTR;
  tunnel.active = now;
  way.restFrom += static_cast<uint32_t>(sent);
  if (way.restFrom == way.restEnd) way.rest.reset();
  return true;
}

/* Sends a block and keeps what is not taken. False when the receiver has gone, or there is no memory for its rest. */
bool pass(Tunnel &tunnel, int from, size_t count) {
  Way &way = tunnel.ways[from];
  way.bytes += count;
  ssize_t sent = send(tunnel.sockets[1 - from], block, count, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) return false;
  size_t taken = sent < 0 ? 0 : static_cast<size_t>(sent);
  if (taken == count) return true;
  way.rest.reset(new (std::nothrow) char[count - taken]);
  if (!way.rest) return false;
  std::memcpy(way.rest.get(), block + taken, count - taken);
  way.restFrom = 0;
  way.restEnd = static_cast<uint32_t>(count - taken);
  return true;
}

enum class Moved { waits, more, broken };

/* Moves bytes of one direction until its sender has no more or its receiver takes no more, but not for ever. */
Moved move(Tunnel &tunnel, int from, int64_t now) {
  Way &way = tunnel.ways[from];
  for (int blocks = 0; blocks < mostBlocks; blocks++) {
    if (way.rest && !flush(tunnel, from, now)) return Moved::broken;
    if (way.rest || way.ended || !way.readable) return Moved::waits;
    ssize_t count = recv(tunnel.sockets[from], block, sizeof block, MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno != EAGAIN) return Moved::broken;
    if (count < 0 || (static_cast<size_t>(count) < sizeof block && count > 0 && !way.sawEnd)) way.readable = false;
    if (count < 0) return Moved::waits;
    tunnel.active = now;
    if (count == 0) {
      way.ended = true;
      shutdown(tunnel.sockets[1 - from], SHUT_WR);
      return Moved::waits;
    }
    if (!pass(tunnel, from, static_cast<size_t>(count))) return Moved::broken;
  }
  return Moved::more;
}

void end(Relay &relay, uint32_t index) {
  Tunnel &tunnel = *relay.tunnels[index];
  setDebugString((hostConfig.debugTag + "#" + std::to_string(tunnel.number) + " ").c_str());
  dprintf(1, "%s,TUNNEL CLOSED,UP:%llu,DOWN:%llu,SECONDS:%lld\n", tunnel.text.c_str(),
          static_cast<unsigned long long>(tunnel.ways[0].bytes), static_cast<unsigned long long>(tunnel.ways[1].bytes),
          static_cast<long long>((relay.now - tunnel.began) / 1000));
  netsift_recordRelay(tunnel.record.data(), static_cast<uint32_t>(tunnel.record.size()), tunnel.ways[1].bytes);
  for (int sock : tunnel.sockets) close(sock);
  relay.tunnels[index].reset();
  relay.endedRecords.push_back(index);
  relay.count--;
}

void serve(Relay &relay, uint32_t index) {
  Tunnel &tunnel = *relay.tunnels[index];
  bool more = false;
  for (int from : {0, 1}) {
    Moved moved = move(tunnel, from, relay.now);
    if (moved == Moved::broken) return end(relay, index);
    more = more || moved == Moved::more;
  }
  if (tunnel.ways[0].ended && tunnel.ways[1].ended) return end(relay, index);
  if (more) relay.again.push_back(index);
}

void noteEvent(Tunnel &tunnel, int side, uint32_t events) {
  Way &way = tunnel.ways[side];
  if ((events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) way.readable = true;
  if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) way.sawEnd = true;
}

bool watch(Relay &relay, uint32_t index) {
  for (int side : {0, 1}) {
    struct epoll_event event {
      EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, { .u64 = uint64_t{index} * 2 + static_cast<unsigned>(side) }
    };
    int sock = relay.tunnels[index]->sockets[side];
    if (epoll_ctl(relay.events, EPOLL_CTL_ADD, sock, &event) != 0) return false;
  }
  return true;
}

void takeTunnel(Relay &relay, const TunnelOffer &offer, std::string record, const int (&sockets)[2]) {
  if (relay.freeRecords.empty()) {
    relay.freeRecords.push_back(static_cast<uint32_t>(relay.tunnels.size()));
    relay.tunnels.emplace_back();
  }
  uint32_t index = relay.freeRecords.back();
  relay.freeRecords.pop_back();
  relay.tunnels[index].reset(new Tunnel{{sockets[0], sockets[1]},
                                        {},
                                        offer.idleSeconds,
                                        offer.number,
                                        relay.now,
                                        relay.now,
                                        offer.text,
                                        std::move(record)});
  relay.count++;
  if (!watch(relay, index)) return end(relay, index);
  relay.checkAt = std::min(relay.checkAt, relay.now + checkPause);
  serve(relay, index);
}

/* The sockets of a message; false when it has not both, and none is open then. */
bool socketsOf(struct msghdr &message, int (&sockets)[2]) {
  struct cmsghdr *rights = CMSG_FIRSTHDR(&message);
  if (rights == nullptr || rights->cmsg_type != SCM_RIGHTS) return false;
  size_t count = (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int);
  std::memcpy(sockets, CMSG_DATA(rights), std::min(count, size_t{2}) * sizeof(int));
  if (count == 2) return true;
  for (size_t i = 0; i < count; i++) close(sockets[i]);
  return false;
}

/* What stands behind the text of an offer that came with so many bytes. */
std::string recordOf(const TunnelOffer &offer, size_t received) {
  const size_t start = offsetof(TunnelOffer, text) + std::strlen(offer.text) + 1;
  if (received <= start) return "";
  return {reinterpret_cast<const char *>(&offer) + start, received - start};
}

/* Takes one offer. False when none waits; at the end of them, when no worker is left, it is closed. */
bool takeOffer(Relay &relay) {
  TunnelOffer offer{};
  int sockets[2];
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof sockets)];
  struct iovec bytes {
    &offer, sizeof offer
  };
  struct msghdr message {};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t count = recvmsg(relay.offers, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (count < 0) return errno == EINTR;
  if (count == 0) {
    close(std::exchange(relay.offers, -1));
    return false;
  }
  offer.text[sizeof offer.text - 1] = '\0';
  if (socketsOf(message, sockets)) takeTunnel(relay, offer, recordOf(offer, static_cast<size_t>(count)), sockets);
  return true;
}

void takeOffers(Relay &relay) {
  for (int i = 0; i < mostOffers && relay.offers >= 0 && takeOffer(relay); i++) continue;
}

/* Ends the tunnels whose time without traffic is over, and finds when to look again. */
void checkIdle(Relay &relay) {
  if (relay.now < relay.checkAt) return;
  int64_t next = INT64_MAX;
  for (uint32_t index = 0; index < relay.tunnels.size(); index++) {
    const Tunnel *tunnel = relay.tunnels[index].get();
    if (tunnel == nullptr || tunnel->idleSeconds < 0) continue; /* negative: without limit */
    int64_t until = tunnel->active + int64_t{1000} * tunnel->idleSeconds;
    if (until <= relay.now)
      end(relay, index);
    else
      next = std::min(next, until);
  }
  relay.checkAt = next == INT64_MAX ? next : std::max(next, relay.now + checkPause);
}

int waitTime(const Relay &relay) {
  if (!relay.again.empty()) return 0;
  if (relay.checkAt == INT64_MAX) return -1;
  return static_cast<int>(std::clamp<int64_t>(relay.checkAt - milliseconds(), 0, INT32_MAX));
}

void relayRound(Relay &relay) {
  struct epoll_event events[mostEvents];
  int count = epoll_wait(relay.events, events, mostEvents, waitTime(relay));
  relay.now = milliseconds();
  std::vector<uint32_t> again = std::move(relay.again);
  relay.again.clear();
  for (uint32_t index : again) {
    if (relay.tunnels[index]) serve(relay, index);
  }
  bool offered = false;
  for (int i = 0; i < count; i++) {
    uint64_t mark = events[i].data.u64;
    auto index = static_cast<uint32_t>(mark / 2);
    if (mark == offersMark) {
      offered = true;
    } else if (relay.tunnels[index]) {
      noteEvent(*relay.tunnels[index], static_cast<int>(mark % 2), events[i].events);
      serve(relay, index);
    }
  }
  checkIdle(relay);
  relay.freeRecords.insert(relay.freeRecords.end(), relay.endedRecords.begin(), relay.endedRecords.end());
  relay.endedRecords.clear();
  if (offered) takeOffers(relay); /* last: their records may be ones that events of this round named */
}

/* Like a worker it ends by SIGTERM, from the server or at its death. */
void becomeRelay() {
  for (int ignored : {SIGINT, SIGHUP, SIGPIPE}) signal(ignored, SIG_IGN);
  for (int usual : {SIGTERM, SIGCHLD}) signal(usual, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  prctl(PR_SET_NAME, "netsiftd-relay");
  struct rlimit descriptors;
  if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return;
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);
}

}  // namespace

int32_t mostTunnels() {
  constexpr rlim_t ownDescriptors = 64;
  struct rlimit descriptors;
  if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_max <= ownDescriptors) return 0;
  return static_cast<int32_t>(std::min<rlim_t>((descriptors.rlim_max - ownDescriptors) / 2, INT32_MAX));
}

void relayTunnels(int offers, std::atomic<int32_t> &count) {
  becomeRelay();
  Relay relay{offers, count};
  relay.events = epoll_create1(EPOLL_CLOEXEC);
  struct epoll_event offered {
    EPOLLIN, { .u64 = offersMark }
  };
  if (relay.events < 0 || epoll_ctl(relay.events, EPOLL_CTL_ADD, offers, &offered) != 0) _exit(1);
  while (relay.offers >= 0 || count > 0) relayRound(relay);
  _exit(0);
}

}  // namespace netsift::host
