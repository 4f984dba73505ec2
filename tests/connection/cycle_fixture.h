/* One connection through the whole cycle: the client's bytes are written beforehand, the upstream is a scripted peer.
 */
#ifndef NETSIFT_TESTS_CONNECTION_CYCLE_FIXTURE_H
#define NETSIFT_TESTS_CONNECTION_CYCLE_FIXTURE_H

#include <arpa/inet.h>
#include <gdbm.h>
#include <sys/socket.h>

#include <atomic>
#include <memory>

#include "cache/dbcache.h"
#include "connection/connection_trickle.h"
#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

namespace netsift::test {

/* An upstream on a loopback port. On every connection it answers one head after the other with the next answer, as long
   as there is one, and then closes. A byte of 1 in an answer is a pause. */
class Upstream {
 public:
  explicit Upstream(std::vector<std::string> answers) : answers_(std::move(answers)) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener_, 8) != 0) std::abort();
    getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size);
    port = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~Upstream() { finish(); }

  /* What has been received, over all connections; nothing is served after this. */
  const std::string &finish() {
    if (thread_.joinable()) {
      shutdown(listener_, SHUT_RDWR);
      thread_.join();
      close(listener_);
    }
    return received_;
  }

  int port;
  int connections = 0;

 private:
  void serve() {
    for (int fd; (fd = accept(listener_, nullptr, nullptr)) >= 0; close(fd)) {
      connections++;
      timeval patience{2, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      size_t seen = received_.size();
      char piece[4096];
      for (ssize_t count; (count = read(fd, piece, sizeof piece)) > 0;) {
        received_.append(piece, static_cast<size_t>(count));
        if (received_.find("\r\n\r\n", seen) == std::string::npos) continue;
        if (next_ == answers_.size()) break;
        seen = received_.size();
        const std::string &answer = answers_[next_++];
        const size_t pause = std::min(answer.find('\1'), answer.size());
        send(fd, answer.data(), pause, MSG_NOSIGNAL);
        if (pause < answer.size()) {
          usleep(1'200'000); /* longer than a piece of text is waited for */
          send(fd, answer.data() + pause + 1, answer.size() - pause - 1, MSG_NOSIGNAL);
        }
        if (answer.find("close") != std::string::npos) shutdown(fd, SHUT_WR);
      }
    }
  }

  std::vector<std::string> answers_;
  size_t next_ = 0;
  std::string received_;
  int listener_;
  std::thread thread_;
};

class CycleTest : public testing::Test {
 protected:
  CycleTest() {
    PROXY_TIMEOUT = 2;
    disableCache = 1;
    clientaddr.sin_addr.s_addr = htonl(0x0A010203);
    writeFile(root.config("template.htm"), "<p>%r</p>%u");
    writeFile(root.config("errortemplate.htm"), "<e>%r</e>");
  }

  /* Serves the requests as one client's connection and returns what the client received. */
  std::string serve(const std::string &requests, std::vector<std::string> answers) {
    Upstream upstream(std::move(answers));
    ProxyPresent = 1;
    proxyip = address_;
    proxyport = upstream.port;
    std::string received = serveDirect(requests);
    forwarded = upstream.finish();
    connections = upstream.connections;
    return received;
  }

  std::string serveDirect(const std::string &requests) {
    clientsock = client.near;
    std::string received;
    std::thread reader([&] {
      char piece[65536];
      for (ssize_t count; (count = read(client.far, piece, sizeof piece)) > 0;) {
        received.append(piece, static_cast<size_t>(count));
      }
    });
    client.send(requests);
    if (endsRequests) shutdown(client.far, SHUT_WR);
    result = connectionHandle();
    shutdown(client.near, SHUT_RDWR);
    reader.join();
    shutdown(proxysock, SHUT_RDWR);
    SocketPair next;
    std::swap(client.near, next.near);
    std::swap(client.far, next.far);
    return received;
  }

  /* On every site. */
  void blockPopups() {
    static char *none[] = {nullptr};
    blockpopup = 1;
    popuplist = {sym_create_table_(nullptr, 0), none, none};
  }

  ScratchRoot root;
  SocketPair client;
  LogCapture log{7};
  int32_t result = -100;
  std::string forwarded;    /* what the upstream received */
  int connections = 0;      /* and over how many connections */
  bool endsRequests = true; /* the client says that it is done; a relay would end at that */

 private:
  char address_[10] = "127.0.0.1";
};

inline constexpr char get[] = "GET http://h/p HTTP/1.1\r\nHost: h\r\n\r\n";

inline std::string response(const std::string &fields, const std::string &body, const char *status = "200 OK") {
  return "HTTP/1.0 " + std::string(status) + "\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

inline std::string bodyOf(const std::string &answer) {
  const size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? "<no head>" : answer.substr(end + 4);
}

/* With an empty verdict cache. */
class CachedTest : public CycleTest {
 protected:
  CachedTest() {
    disableCache = 0;
    emptyCache();
  }
  void emptyCache() {
    const std::string path = root.path() + "/opt/Velmora/var/nscache.db";
    gdbm_close(gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0600, nullptr));
  }
  int32_t verdict() { return if_url_scanned_check_ok("h/p", date); }

  static constexpr char date[] = "Tue, 15 Nov 1994 12:45:26 GMT";
  const std::string dated = "Last-Modified: " + std::string(date) + "\r\nConnection: close\r\n";
};

/* Scans with a scripted second engine: the answer it gives to every scan, or none when it is not there. */
class ScanTest : public CachedTest {
 protected:
  ScanTest() {
    snprintf(VIRFILE_DIR, sizeof VIRFILE_DIR, "%s/", root.path().c_str());
    virusscan = DoClamScan = 1;
    startScanSize = 1;
  }
  void engine(std::vector<std::string> answers) {
    stopEngine();
    scans = 0;
    engine_ = std::make_unique<ScriptedDaemon>(root, "vlcavd.sock", [this, answers = std::move(answers)](int fd) {
      readOnce(fd);
      if (scans < answers.size()) say(fd, answers[scans]);
      scans++;
    });
  }
  void stopEngine() {
    engine_.reset();
    unlink((root.path() + "/opt/Velmora/var/run/vlcavd.sock").c_str());
  }
  std::atomic<size_t> scans = 0;

 private:
  std::unique_ptr<ScriptedDaemon> engine_;
};

}  // namespace netsift::test

#endif
