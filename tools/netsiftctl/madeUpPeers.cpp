#include "tools/netsiftctl/madeUpPeers.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <string_view>
#include <thread>
#include <utility>

#include "host/child.h"
#include "netsift.h"

namespace netsift::ctl {

namespace {

constexpr size_t mostKept = 65536; /* of what the client gets */
constexpr time_t patienceSeconds = 15;
constexpr std::string_view established = "HTTP/1.1 200 Connection established\r\n\r\n";

struct Upstream {
  int fd;
  std::thread thread;
};

/* The scene that is being served; the library asks for its upstream without saying for whom. */
const Scene *played;
std::list<Upstream> upstreams;
std::atomic<bool> somethingCame;

void sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

/* Adds what comes; false at the end. */
bool readSome(int fd, std::string &bytes) {
  char block[16384];
  const ssize_t count = recv(fd, block, sizeof block, 0);
  if (count <= 0) return false;
  bytes.append(block, static_cast<size_t>(count));
  return true;
}

bool readHead(int fd, std::string &bytes) {
  while (bytes.find("\r\n\r\n") == bytes.npos) {
    if (!readSome(fd, bytes)) return false;
  }
  return true;
}

/* A tunnel's first bytes are enough: it is closed then, as by a server that has nothing to say. */
void playUpstream(int fd) {
  std::string bytes;
  if (readSome(fd, bytes)) {
    const bool isHttp = bytes[0] >= 'A' && bytes[0] <= 'Z';
    if (isHttp && readHead(fd, bytes) && bytes.starts_with("CONNECT ")) {
      sendAll(fd, established);
      bytes.clear();
      somethingCame = readSome(fd, bytes);
    } else {
      somethingCame = true;
      if (isHttp) sendAll(fd, played->answer);
    }
  }
  shutdown(fd, SHUT_RDWR);
}

std::string asBigEndian(size_t number, int bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(number >> (8 * bytes) & 0xFF);
  return text;
}

std::string withLength(const std::string &bytes, int width) { return asBigEndian(bytes.size(), width) + bytes; }

/* RFC 8446 section 4.1.2, with nothing in it but the name (RFC 6066 section 3). */
std::string clientHello(const std::string &name) {
  std::string extensions;
  const std::string entry = withLength(std::string(1, '\0') + withLength(name, 2), 2);
  if (!name.empty()) extensions = asBigEndian(0, 2) + withLength(entry, 2);
  const std::string hello = "\x03\x03" + std::string(32, '.') + withLength("", 1) + withLength("\x13\x01", 2) +
                            withLength(std::string(1, '\0'), 1) + withLength(extensions, 2);
  return "\x16\x03\x01" + withLength("\x01" + withLength(hello, 3), 2);
}

void playClient(int fd, std::string &received) {
  sendAll(fd, played->request);
  if (played->isTunnel && readHead(fd, received) &&
      received.substr(0, received.find('\r')).find(" 200") != received.npos)
    sendAll(fd, clientHello(played->serverName));
  std::string more;
  while (readSome(fd, more)) {
    received.append(more, 0, mostKept - std::min(mostKept, received.size()));
    more.clear();
  }
  close(fd);
}

/* The near end, and the far one in `far`; it waits for a while only. */
int openPair(int &far) {
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return -1;
  const timeval patience{patienceSeconds, 0};
  setsockopt(pair[1], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  far = pair[1];
  return pair[0];
}

int connectUpstream() {
  int far;
  const int near = openPair(far);
  if (near >= 0) upstreams.push_back({far, std::thread(playUpstream, far)});
  return near;
}

/* Those that nothing was asked of still wait. */
void endUpstreams() {
  for (Upstream &upstream : upstreams) {
    shutdown(upstream.fd, SHUT_RDWR);
    upstream.thread.join();
    close(upstream.fd);
  }
  upstreams.clear();
}

}  // namespace

Served serveScene(const Scene &scene, int firstDescriptor) {
  static bool hasImage = false;
  if (!std::exchange(hasImage, true)) netsift_keepState();
  Served served{};
  int far;
  const int near = openPair(far);
  if (near < 0) return served;
  played = &scene;
  somethingCame = false;
  beginRecord(connectUpstream);
  std::thread client(playClient, far, std::ref(served.received));
  host::serveConnection(near, scene.client);
  client.join();
  endUpstreams();
  served.record = endRecord();
  served.isPassed = somethingCame;
  served.reason = reason;
  netsift_resetState(firstDescriptor);
  return served;
}

}  // namespace netsift::ctl
