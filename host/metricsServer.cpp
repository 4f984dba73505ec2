#include "host/metricsServer.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "host/clock.h"
#include "host/metrics.h"

namespace netsift::host {

namespace {

constexpr size_t mostAskers = 64, longestRequest = 8192;
constexpr int64_t askerMilliseconds = 10000;

struct Asker {
  int sock;
  int64_t deadline;
  std::string request{}, answer{};
};

std::string answerTo(const std::string &request, const Board &board) {
  const std::string line = request.substr(0, request.find_first_of("\r\n"));
  const bool isGet = line.starts_with("GET "), isHead = line.starts_with("HEAD ");
  const size_t start = isHead ? 5 : 4;
  const std::string target = isGet || isHead ? line.substr(start, line.find_first_of(" ?", start) - start) : "";
  std::string status = "200 OK", body;
  if (target == "/metrics") body = metricsText(board.metrics, board);
  if (target == "/health") {
    const bool serves = allWorkers(board) > 0;
    body = serves ? "ok\n" : "no process serves\n";
    if (!serves) status = "503 Service Unavailable";
  }
  if (body.empty()) {
    status = target.empty() ? "405 Method Not Allowed" : "404 Not Found";
    body = "/metrics and /health are here.\n";
  }
  const std::string head = "HTTP/1.1 " + status + "\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n" +
                           (target.empty() ? "Allow: GET, HEAD\r\n" : "") +
                           "Cache-Control: no-store\r\nConnection: close\r\n" +
                           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return isHead ? head : head + body;
}

/* False when it has been served or is to be left. */
bool hear(Asker &asker, const Board &board) {
  char block[2048];
  const ssize_t count = recv(asker.sock, block, sizeof block, MSG_DONTWAIT);
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  asker.request.append(block, static_cast<size_t>(count));
  const bool isWhole = asker.request.find("\r\n\r\n") != asker.request.npos;
  if (isWhole) asker.answer = answerTo(asker.request, board);
  return isWhole || (count > 0 && asker.request.size() < longestRequest);
}

bool tell(Asker &asker) {
  const ssize_t sent = send(asker.sock, asker.answer.data(), asker.answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0) return errno == EAGAIN || errno == EINTR;
  asker.answer.erase(0, static_cast<size_t>(sent));
  if (asker.answer.empty()) shutdown(asker.sock, SHUT_WR);
  return !asker.answer.empty();
}

bool serve(Asker &asker, const Board &board) {
  if (asker.answer.empty() && !hear(asker, board)) return false;
  return asker.answer.empty() || tell(asker);
}

void serveRound(int listener, std::vector<Asker> &askers, const Board &board) {
  const bool takes = askers.size() < mostAskers;
  std::vector<pollfd> polled = {{takes ? listener : -1, POLLIN, 0}};
  int64_t next = INT64_MAX;
  for (const Asker &asker : askers) {
    polled.push_back({asker.sock, static_cast<short>(asker.answer.empty() ? POLLIN : POLLOUT), 0});
    next = std::min(next, asker.deadline);
  }
  const int64_t wait = next == INT64_MAX ? -1 : std::max<int64_t>(next - milliseconds(), 0);
  poll(polled.data(), polled.size(), static_cast<int>(wait));
  const int64_t now = milliseconds();
  size_t i = 1;
  std::erase_if(askers, [&](Asker &asker) {
    const bool isDue = polled[i++].revents != 0;
    const bool stays = now < asker.deadline && (!isDue || serve(asker, board));
    if (!stays) close(asker.sock);
    return !stays;
  });
  if (polled[0].revents == 0) return;
  const int sock = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (sock >= 0) askers.push_back({sock, now + askerMilliseconds});
}

}  // namespace

void serveMetrics(int listener, const Board &board) {
  for (int ignored : {SIGINT, SIGHUP, SIGPIPE, SIGUSR1}) signal(ignored, SIG_IGN);
  for (int usual : {SIGTERM, SIGCHLD}) signal(usual, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const pid_t parent = getppid();
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  prctl(PR_SET_NAME, "netsiftd-figures");
  std::vector<Asker> askers;
  while (getppid() == parent) serveRound(listener, askers, board);
  _exit(0);
}

}  // namespace netsift::host
