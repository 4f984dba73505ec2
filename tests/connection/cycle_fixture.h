/* One connection through the whole cycle: the client's bytes are written beforehand, the upstream is a scripted peer.
 */
#ifndef NETSIFT_TESTS_CONNECTION_CYCLE_FIXTURE_H
#define NETSIFT_TESTS_CONNECTION_CYCLE_FIXTURE_H

#include <gdbm.h>

#include <atomic>
#include <memory>

#include "cache/dbcache.h"
#include "connection/connection_trickle.h"
#include "tests/support/scriptedDaemon.h"

namespace netsift::test {

class CycleTest : public testing::Test {
 protected:
  CycleTest() {
    PROXY_TIMEOUT = 2;
    disableCache = 1;
    clientaddr.sin_addr.s_addr = htonl(0x0A010203);
    writeFile(root.config("template.htm"), "<p>%r</p>%u");
    writeFile(root.config("errortemplate.htm"), "<e>%r</e>");
  }

  /* Serves the requests as one client's connection through an upstream with these answers and returns what the client
     received. */
  std::string serve(const std::string &requests, const std::vector<std::string> &answers) {
    ScriptedDaemon upstream = answering(answers);
    goThrough(upstream.port);
    return serveDirect(requests);
  }

  /* Makes that local port the upstream proxy's. */
  void goThrough(int port) {
    static char address[] = "127.0.0.1";
    ProxyPresent = 1;
    proxyip = address;
    proxyport = port;
  }

  /* On every connection it answers one head after the other with the next answer, as long as there is one, and then
     closes. A byte of 1 in an answer is a pause; after one that holds "close" it sends no more. */
  ScriptedDaemon answering(const std::vector<std::string> &answers) {
    connections = 0;
    forwarded.clear();
    return ScriptedDaemon([this, answers, next = size_t{0}](int fd) mutable {
      connections++;
      const timeval patience{2, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      size_t seen = forwarded.size();
      for (std::string piece; !(piece = readOnce(fd)).empty();) {
        forwarded += piece;
        if (forwarded.find("\r\n\r\n", seen) == std::string::npos) continue;
        if (next == answers.size()) break;
        seen = forwarded.size();
        const std::string &answer = answers[next++];
        const size_t pause = std::min(answer.find('\1'), answer.size());
        say(fd, answer.substr(0, pause));
        if (pause < answer.size()) {
          usleep(1'200'000); /* longer than a piece of text is waited for */
          say(fd, answer.substr(pause + 1));
        }
        if (answer.find("close") != std::string::npos) shutdown(fd, SHUT_WR);
      }
    });
  }

  std::string serveDirect(const std::string &requests) {
    clientsock = client.near;
    std::string received;
    std::thread reader([&] { received = readToEnd(client.far); });
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
