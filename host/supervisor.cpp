#include "host/supervisor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>
#include <vector>

#include "host/configRead.h"
#include "host/files.h"
#include "host/hostConfig.h"
#include "host/installCheck.h"
#include "host/load.h"
#include "host/metrics.h"
#include "host/metricsServer.h"
#include "host/server.h"
#include "host/sockets.h"
#include "log/requestLog.h"

namespace netsift::host {

namespace {

constexpr size_t warningsAtStart = 10; /* a badly sorted phrase list has thousands; --check shows them all */
constexpr unsigned restartSeconds = 1;

enum class State { loading, serving, retiring, retired };

struct Generation {
  pid_t pid;
  int control;
  int slot;
  State state = State::loading;
};

struct Supervisor {
  std::string configuration;
  std::vector<SocketAddress> listenGiven; /* on the command line */
  std::vector<SocketAddress> listen;      /* as it was at the start */
  std::vector<int> listeners;
  int notify = -1, signals = -1, idleSemaphore = -1, metrics = -1;
  pid_t metricsServer = -1;
  Board *board = nullptr;
  std::vector<Generation> generations;
  bool started = false;     /* the first generation serves */
  bool reloadAsked = false; /* SIGHUP came while one was loading */
  int ending = 0;           /* how often it was told to end */
  int status = 0;
};

void printAtStart(Problems problems) {
  size_t warnings = 0;
  std::erase_if(problems, [&](const Problem &problem) { return !problem.fatal && ++warnings > warningsAtStart; });
  printProblems(problems);
  if (warnings > warningsAtStart)
    say(std::to_string(warnings - warningsAtStart) + " more warnings; --check shows them all");
}

/* The listeners stay as they were opened, which is what the rest of the configuration has to fit. */
void settleAddresses(const Supervisor &supervisor) {
  if (!supervisor.listenGiven.empty()) hostConfig.listen = supervisor.listenGiven;
  if (!supervisor.started) return;
  if (!std::ranges::equal(hostConfig.listen, supervisor.listen, {}, endpointText, endpointText))
    say("listen.address has changed: that takes effect at the next start");
  hostConfig.listen = supervisor.listen;
}

bool readAndCheck(const Supervisor &supervisor) {
  Problems problems;
  readConfiguration(supervisor.configuration, problems);
  if (!anyFatal(problems)) settleAddresses(supervisor);
  if (!anyFatal(problems)) checkInstallation(problems);
  if (!anyFatal(problems)) makeMissing(problems);
  printAtStart(problems);
  return !anyFatal(problems);
}

bool loadLists() {
  Problems problems;
  loadLibrary(problems);
  printProblems(problems);
  return !anyFatal(problems);
}

/* Where it cannot be written, that is told, and clients are served all the same. */
void openRequestLog(Board &board) {
  static std::string path;
  if (hostConfig.logRequests == 0) return;
  path = logPath(hostConfig.requestFile);
  const NetsiftRequestLog log{path.c_str(), hostConfig.requestFormat, hostConfig.cutQueries, &board.requestLog,
                              [](const char *message) { say(message); }};
  if (netsift_openRequestLog(&log) != 1) say(path + ": no descriptor for it; requests are not logged");
}

/* The life of a generation, in its own process. The first one inherits the configuration that the start has read. */
int runGeneration(const Supervisor &supervisor, int control, int slot) {
  signal(SIGALRM, SIG_DFL); /* ends a loading that takes too long; bury says so */
  alarm(static_cast<unsigned>(hostConfig.loadSeconds));
  if (supervisor.started && !readAndCheck(supervisor)) return exitConfiguration;
  alarm(static_cast<unsigned>(hostConfig.loadSeconds));
  if (!loadLists()) return exitConfiguration;
  alarm(0);
  openRequestLog(*supervisor.board);
  if (supervisor.metrics >= 0) countInto(supervisor.board->metrics);
  return serveClients({supervisor.listeners, supervisor.notify, control, supervisor.idleSemaphore}, supervisor.board,
                      slot);
}

int freeSlot(const Supervisor &supervisor) {
  for (int slot = 0; slot < mostGenerations; slot++) {
    if (std::ranges::none_of(supervisor.generations, [slot](const Generation &g) { return g.slot == slot; }))
      return slot;
  }
  return -1;
}

bool startGeneration(Supervisor &supervisor) {
  int slot = freeSlot(supervisor), pair[2];
  if (slot < 0) {
    say("connections of " + std::to_string(mostGenerations) + " earlier loadings are still running");
    return false;
  }
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
    say(std::string("no control socket: ") + std::strerror(errno));
    return false;
  }
  pid_t pid = fork();
  if (pid == 0) {
    close(pair[0]);
    close(supervisor.signals);
    if (supervisor.metrics >= 0) close(supervisor.metrics);
    for (const Generation &other : supervisor.generations) close(other.control);
    sigset_t none; /* while it loads, it may be ended like any process */
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    _exit(runGeneration(supervisor, pair[1], slot));
  }
  close(pair[1]);
  if (pid < 0) {
    say(std::string("no process can be started: ") + std::strerror(errno));
    close(pair[0]);
    return false;
  }
  supervisor.generations.push_back({pid, pair[0], slot});
  return true;
}

void command(const Generation &generation, Command what) { send(generation.control, &what, 1, MSG_NOSIGNAL); }

bool any(const Supervisor &supervisor, State state) {
  return std::ranges::any_of(supervisor.generations, [state](const Generation &g) { return g.state == state; });
}

void end(Supervisor &supervisor) {
  supervisor.ending++;
  for (int listener : std::exchange(supervisor.listeners, {})) close(listener);
  for (const Generation &generation : supervisor.generations) {
    if (generation.state == State::loading)
      kill(generation.pid, SIGTERM);
    else
      command(generation, supervisor.ending > 1 ? stop : drain);
  }
}

void reload(Supervisor &supervisor) {
  if (supervisor.ending > 0) return;
  supervisor.reloadAsked = any(supervisor, State::loading);
  if (!supervisor.reloadAsked && !startGeneration(supervisor)) say("the configuration and lists in use stay");
}

/* A generation serves: the one before is to take no more clients. The takeover is told when it has said so. */
void takeOver(Supervisor &supervisor, Generation &fresh) {
  fresh.state = State::serving;
  if (supervisor.ending > 0) return command(fresh, drain);
  bool first = !std::exchange(supervisor.started, true);
  for (Generation &other : supervisor.generations) {
    if (&other == &fresh || other.state != State::serving) continue;
    other.state = State::retiring;
    return command(other, retire);
  }
  if (!first) return say("serving again");
  for (int listener : supervisor.listeners) say("listening on " + boundAddress(listener));
}

void finishTakeOver(Generation &generation) {
  generation.state = State::retired;
  say("configuration and lists loaded anew");
}

void hear(Supervisor &supervisor, Generation &generation) {
  char message;
  if (recv(generation.control, &message, 1, MSG_DONTWAIT) != 1) return; /* it has ended: reap says how */
  if (message == readyMessage && generation.state == State::loading) noteLoading(supervisor.board->metrics, true);
  if (message == readyMessage && generation.state == State::loading) takeOver(supervisor, generation);
  if (message == retiredMessage && generation.state == State::retiring) finishTakeOver(generation);
}

void giveUp(Supervisor &supervisor, int status) {
  supervisor.status = status;
  end(supervisor);
}

/* A generation has ended: orderly, while loading, or by a fault that must not take the service with it. */
void bury(Supervisor &supervisor, Generation &gone, int status) {
  if (supervisor.ending > 0 || gone.state == State::retired) return;
  if (gone.state == State::loading && WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    say("loading took longer than service.load_seconds and was given up; raise it if the lists need the time");
  if (gone.state == State::retiring) {
    finishTakeOver(gone);
  } else if (gone.state == State::serving) {
    say("the serving process has ended (" +
        (WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status))) +
        "); another is started");
    sleep(restartSeconds);
    if (!any(supervisor, State::loading) && !startGeneration(supervisor)) giveUp(supervisor, exitTrouble);
  } else if (noteLoading(supervisor.board->metrics, false); !any(supervisor, State::serving)) {
    bool told = WIFEXITED(status) && WEXITSTATUS(status) == exitConfiguration;
    if (!told) say("the server could not be started");
    giveUp(supervisor, told ? exitConfiguration : exitTrouble);
  } else {
    say("not loaded: the configuration and lists in use stay");
  }
}

void startMetrics(Supervisor &supervisor) {
  if (supervisor.metrics < 0) return;
  supervisor.metricsServer = fork();
  if (supervisor.metricsServer != 0) return;
  for (int listener : supervisor.listeners) close(listener);
  for (const Generation &generation : supervisor.generations) close(generation.control);
  close(supervisor.signals);
  if (supervisor.notify >= 0) close(supervisor.notify);
  serveMetrics(supervisor.metrics, *supervisor.board);
}

/* Nothing that it does is worth a busy loop of processes. */
void loseMetrics(Supervisor &supervisor) {
  supervisor.metricsServer = -1;
  if (supervisor.ending > 0) return;
  say("the process that tells the figures has ended; another is started");
  sleep(restartSeconds);
  startMetrics(supervisor);
}

void reap(Supervisor &supervisor) {
  int status;
  for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
    auto found = std::ranges::find(supervisor.generations, pid, &Generation::pid);
    if (pid == supervisor.metricsServer) loseMetrics(supervisor);
    if (found == supervisor.generations.end()) continue;
    hear(supervisor, *found); /* it may have become ready just before */
    Generation gone = *found;
    close(gone.control);
    supervisor.generations.erase(found);
    supervisor.board->workers[gone.slot] = supervisor.board->tunnels[gone.slot] = 0;
    bury(supervisor, gone, status);
  }
}

void takeSignal(Supervisor &supervisor) {
  struct signalfd_siginfo info;
  while (read(supervisor.signals, &info, sizeof info) == sizeof info) {
    if (info.ssi_signo == SIGHUP) reload(supervisor);
    if (info.ssi_signo == SIGUSR1) std::atomic_ref(supervisor.board->requestLog.round)++;
    if (info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT) end(supervisor);
    if (info.ssi_signo == SIGCHLD) reap(supervisor);
  }
}

void run(Supervisor &supervisor) {
  while (!supervisor.generations.empty()) {
    std::vector<struct pollfd> polled = {{supervisor.signals, POLLIN, 0}};
    for (const Generation &generation : supervisor.generations) {
      bool awaited = generation.state == State::loading || generation.state == State::retiring;
      polled.push_back({awaited ? generation.control : -1, POLLIN, 0});
    }
    if (poll(polled.data(), polled.size(), -1) <= 0) continue;
    for (size_t i = 1; i < polled.size(); i++) {
      if (polled[i].revents != 0) hear(supervisor, supervisor.generations[i - 1]);
    }
    if (polled[0].revents != 0) takeSignal(supervisor);
    if (supervisor.reloadAsked && !any(supervisor, State::loading)) reload(supervisor);
  }
}

bool openMetrics(Supervisor &supervisor) {
  SocketAddress address;
  if (hostConfig.metricsListen.empty() || !parseEndpoint(hostConfig.metricsListen, &address)) return true;
  supervisor.metrics = listenOn(address);
  if (supervisor.metrics < 0) say(hostConfig.metricsListen + ": cannot listen: " + std::strerror(errno));
  if (supervisor.metrics >= 0) say("figures on " + boundAddress(supervisor.metrics));
  return supervisor.metrics >= 0;
}

bool openSockets(Supervisor &supervisor) {
  for (const SocketAddress &address : supervisor.listen) {
    const int listener = listenOn(address);
    if (listener < 0) {
      say(endpointText(address) + ": cannot listen: " + std::strerror(errno));
      return false;
    }
    supervisor.listeners.push_back(listener);
  }
  std::string notify = rooted(notifySocket);
  supervisor.notify = fitsSocketPath(notify) ? listenLocal(notify) : -1;
  if (supervisor.notify >= 0 || !fitsSocketPath(notify)) return true; /* the check has warned of a long path */
  say(notify + (errno == EADDRINUSE ? ": another netsiftd listens here: each needs a root of its own"
                                    : std::string(": cannot listen: ") + std::strerror(errno)));
  return false;
}

bool takeSignals(Supervisor &supervisor) {
  signal(SIGPIPE, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  for (int number : {SIGHUP, SIGUSR1, SIGTERM, SIGINT, SIGCHLD}) sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  supervisor.signals = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  return supervisor.signals >= 0;
}

bool makeShared(Supervisor &supervisor) {
  void *shared = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return false;
  supervisor.board = new (shared) Board{};
  supervisor.idleSemaphore = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
  return supervisor.idleSemaphore >= 0;
}

}  // namespace

int supervise(const std::string &configuration, const std::vector<SocketAddress> &listen) {
  Supervisor supervisor;
  supervisor.configuration = configuration;
  supervisor.listenGiven = listen;
  if (!readAndCheck(supervisor)) return exitConfiguration;
  supervisor.listen = hostConfig.listen;
  if (!makeShared(supervisor) || !takeSignals(supervisor)) {
    say(std::string("cannot start: ") + std::strerror(errno));
    return exitTrouble;
  }
  supervisor.board->metrics.startedAt = std::time(nullptr);
  if (!openSockets(supervisor) || !openMetrics(supervisor) || !startGeneration(supervisor)) return exitTrouble;
  startMetrics(supervisor);
  run(supervisor);
  if (supervisor.metricsServer > 0) kill(supervisor.metricsServer, SIGTERM);
  if (supervisor.notify >= 0) unlink(rooted(notifySocket).c_str());
  return supervisor.status;
}

}  // namespace netsift::host
