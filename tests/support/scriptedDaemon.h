/* A local daemon that does what real ones will not: lie, stall, break off. */
#ifndef NETSIFT_TESTS_SCRIPTEDDAEMON_H
#define NETSIFT_TESTS_SCRIPTEDDAEMON_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <functional>

#include "tests/support/support.h"

namespace netsift::test {

/* Listens in the root's folder for sockets and runs the script over one connection after another. Its end waits until
   whoever has connected by then is served: what the script recorded may be read afterwards. */
struct ScriptedDaemon {
  std::atomic<bool> finishing = false;
  std::thread thread;

  ScriptedDaemon(const ScratchRoot &root, const char *name, std::function<void(int fd)> script) {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    (root.path() + "/opt/Velmora/var/run/" + name).copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) + listen(listener, 64) != 0)
      std::abort();
    thread = std::thread([this, listener, script] {
      pollfd waiting = {listener, POLLIN, 0};
      for (bool last = false, ready = false; !last || ready;) {
        last = finishing;
        ready = poll(&waiting, 1, 5) > 0;
        const int fd = ready ? accept(listener, nullptr, nullptr) : -1;
        if (ready) script(fd), close(fd);
      }
      close(listener);
    });
  }
  ~ScriptedDaemon() { finishing = true, thread.join(); }
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
