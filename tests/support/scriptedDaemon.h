/* A local daemon that does what real ones will not: lie, stall, break off. */
#ifndef NETSIFT_TESTS_SCRIPTEDDAEMON_H
#define NETSIFT_TESTS_SCRIPTEDDAEMON_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace netsift::test {

/* Listens on a Unix socket and runs the script over one connection after another, until it is destroyed. */
class ScriptedDaemon {
 public:
  ScriptedDaemon(const std::string &path, std::function<void(int fd)> script)
      : listener_(socket(AF_UNIX, SOCK_STREAM, 0)), script_(std::move(script)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::abort();
    if (listen(listener_, 64) != 0) std::abort();
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedDaemon() { finish(); }
  ScriptedDaemon(const ScriptedDaemon &) = delete;

  /* Serves whoever has connected by now and ends; what the script recorded may be read afterwards. */
  void finish() {
    if (!thread_.joinable()) return;
    finishing_ = true;
    thread_.join();
    close(listener_);
  }

 private:
  void serve() {
    for (;;) {
      pollfd waiting = {listener_, POLLIN, 0};
      const bool last = finishing_;
      if (poll(&waiting, 1, 5) > 0) {
        const int fd = accept(listener_, nullptr, nullptr);
        script_(fd);
        close(fd);
      } else if (last) {
        return;
      }
    }
  }

  int listener_;
  std::function<void(int)> script_;
  std::atomic<bool> finishing_ = false;
  std::thread thread_;
};

/* One read; empty at the stream's end. */
inline std::string readOnce(int fd) {
  char piece[4096];
  const ssize_t count = read(fd, piece, sizeof piece);
  return {piece, count > 0 ? static_cast<size_t>(count) : 0};
}

inline std::string readToEnd(int fd) {
  std::string all;
  for (std::string piece; !(piece = readOnce(fd)).empty();) all += piece;
  return all;
}

inline void say(int fd, std::string_view text) {
  if (!text.empty()) (void)!::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace netsift::test

#endif
