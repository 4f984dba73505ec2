/* A local daemon that does what real ones will not: lie, stall, break off. */
#ifndef NETSIFT_TESTS_SCRIPTEDDAEMON_H
#define NETSIFT_TESTS_SCRIPTEDDAEMON_H

#include <poll.h>
#include <sys/un.h>

#include <functional>

#include "tests/support/support.h"

namespace netsift::test {

/* Listens and runs the script over one connection after another. Its end waits until whoever has connected by then is
   served: what the script recorded may be read afterwards. */
struct ScriptedDaemon {
  using Script = std::function<void(int fd)>;
  std::thread thread;
  int port = 0, ends[2]; /* of a pipe that is closed at the end */

  /* In the root's folder for sockets. */
  ScriptedDaemon(const ScratchRoot &root, const char *name, Script script) {
    sockaddr_un address{AF_UNIX, {}};
    (root.path() + "/opt/Velmora/var/run/" + name).copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(address.sun_path);
    start(address, std::move(script));
  }
  /* On a free loopback port. */
  explicit ScriptedDaemon(Script script) {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    start(address, std::move(script));
    port = ntohs(address.sin_port);
  }
  ~ScriptedDaemon() { close(ends[1]), thread.join(); }

 private:
  void start(auto &address, Script script) {
    auto *const plain = reinterpret_cast<sockaddr *>(&address);
    const int listener = socket(plain->sa_family, SOCK_STREAM, 0);
    socklen_t size = sizeof address;
    if (bind(listener, plain, size) != 0 || listen(listener, 64) != 0 || pipe(ends) != 0) std::abort();
    getsockname(listener, plain, &size);
    thread = std::thread([this, listener, script = std::move(script)] {
      for (pollfd waiting[] = {{listener, POLLIN, 0}, {ends[0], 0, 0}}; poll(waiting, 2, -1) > 0;) {
        if (waiting[0].revents == 0) break; /* all who had connected are served */
        const int fd = accept(listener, nullptr, nullptr);
        script(fd), close(fd);
      }
      close(listener), close(ends[0]);
    });
  }
};

inline std::string readToEnd(int fd, size_t reads = SIZE_MAX) {
  std::string all;
  char piece[4096];
  for (ssize_t count; reads-- > 0 && (count = read(fd, piece, sizeof piece)) > 0;) all.append(piece, size_t(count));
  return all;
}

inline std::string readOnce(int fd) { return readToEnd(fd, 1); }

inline void say(int fd, std::string_view text) { (void)!::send(fd, text.data(), text.size(), MSG_NOSIGNAL); }

}  // namespace netsift::test

#endif
