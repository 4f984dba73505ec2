#include "host/supervisor.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "host/child.h"
#include "host/clock.h"
#include "tests/host/install.h"

using namespace netsift::host;
using namespace netsift::test;

namespace {

/* The daemon in a process of its own, on a free port; what it says is read line by line. */
struct Daemon {
  pid_t pid;
  int output;
  std::string said;

  explicit Daemon(const Install &install) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    std::string file = install.configurationFile();
    pid = fork();
    if (pid == 0) {
      dup2(ends[1], STDERR_FILENO);
      struct sockaddr_in any {};
      parseEndpoint("127.0.0.1:0", &any);
      _exit(supervise(file, any));
    }
    close(ends[1]);
    output = ends[0];
  }

  /* The rest of the line that follows `text`; fails the test after 20 seconds. */
  std::string awaits(const std::string &text) {
    int64_t end = milliseconds() + 20000;
    for (size_t at, lineEnd;;) {
      at = said.find(text);
      lineEnd = said.find('\n', at);
      if (at != said.npos && lineEnd != said.npos) {
        std::string rest = said.substr(at + text.size(), lineEnd - at - text.size());
        said.erase(0, lineEnd + 1);
        return rest;
      }
      struct pollfd readable {
        output, POLLIN, 0
      };
      char block[4096];
      ssize_t count = poll(&readable, 1, static_cast<int>(end - milliseconds())) == 1 ? read(output, block, 4096) : 0;
      if (count <= 0) {
        ADD_FAILURE() << "not said: " << text << "\nbut: " << said;
        return "";
      }
      said.append(block, static_cast<size_t>(count));
    }
  }

  int status() const {
    int value = -1;
    waitpid(pid, &value, 0);
    return WIFEXITED(value) ? WEXITSTATUS(value) : -1;
  }
};

int connectTo(const std::string &address) {
  struct sockaddr_in peer {};
  parseEndpoint(address, &peer);
  int sock = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(connect(sock, reinterpret_cast<struct sockaddr *>(&peer), sizeof peer), 0);
  return sock;
}

void ask(int sock) {
  std::string head = "GET http://site.example/ HTTP/1.1\r\nHost: site.example\r\n\r\n";
  EXPECT_EQ(send(sock, head.data(), head.size(), 0), ssize_t(head.size()));
}

std::string answer(int sock) {
  std::string all;
  char block[4096];
  for (ssize_t count; (count = recv(sock, block, sizeof block, 0)) > 0;) all.append(block, size_t(count));
  return all;
}

const char *const refuseAll = "[[access]]\nnetwork = \"127.0.0.0/8\"\nlevel = 3\n";
const char *const refusal = "127.0.0.1 may not use this proxy at this time";

}  // namespace

TEST(Supervisor, ReloadsWhenAllIsInOrderAndElseServesOnAsBefore) {
  Install install;
  install.configuration += refuseAll;
  Daemon daemon(install);
  std::string address = daemon.awaits("listening on ");
  auto page = [&address] {
    int sock = connectTo(address);
    ask(sock);
    std::string text = answer(sock);
    close(sock);
    return text.substr(std::min(text.find("page: "), text.size()));
  };
  EXPECT_EQ(page(), std::string("page: ") + refusal + "\n");

  std::string good = install.configuration;
  std::string cache = install.root.path() + "/opt/Velmora/var/nscache.db";
  writeFile(cache, "verdicts");
  install.configuration = good + "[http]\nstrict = 1\n";
  install.configurationFile();
  kill(daemon.pid, SIGHUP);
  daemon.awaits("http.strict: unknown key");
  daemon.awaits("the configuration and lists in use stay");
  install.configuration = good;
  install.configurationFile();
  unlink(install.root.config("whitelist.dom").c_str());
  kill(daemon.pid, SIGHUP);
  daemon.awaits("whitelist.dom: cannot be read");
  daemon.awaits("the configuration and lists in use stay");
  EXPECT_EQ(page(), std::string("page: ") + refusal + "\n");

  EXPECT_EQ(readFile(cache), "verdicts") << "only what is loaded makes them stale";
  install.write("whitelist.dom", "");
  install.configuration = "[lists]\nblock_ads = true\n"; /* direct: nobody is refused, and the ad server is empty */
  install.configurationFile();
  int before = connectTo(address); /* taken by the generation that goes */
  usleep(200000);
  kill(daemon.pid, SIGHUP);
  daemon.awaits("configuration and lists loaded anew");
  EXPECT_NE(readFile(cache), "verdicts");
  int sock = connectTo(address);
  std::string head = "GET http://adserver.example/ HTTP/1.1\r\nHost: adserver.example\r\n\r\n";
  send(sock, head.data(), head.size(), 0);
  std::string empty = answer(sock);
  EXPECT_NE(empty.find("Content-Length: 0\r\n"), std::string::npos) << empty;
  close(sock);
  ask(before);
  EXPECT_NE(answer(before).find(refusal), std::string::npos) << "a running connection keeps what it began with";

  std::string task = "/proc/" + std::to_string(daemon.pid) + "/task/" + std::to_string(daemon.pid);
  std::string children = readFile(task + "/children"); /* "17 23 ", the youngest last */
  kill(std::stoi(children.substr(children.rfind(' ', children.size() - 2) + 1)), SIGKILL);
  daemon.awaits("the serving process has ended (signal 9); another is started");
  daemon.awaits("serving again");

  kill(daemon.pid, SIGTERM);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_FALSE(std::filesystem::exists(install.root.path() + "/opt/Velmora/var/run/netsift.sock"));
}

TEST(Supervisor, NothingIsStartedWithAFaultInTheConfigurationOrAList) {
  for (bool faultyList : {false, true}) {
    Install install;
    if (faultyList) unlink(install.root.config("popup.dom").c_str());
    if (!faultyList) install.configuration += "[listen]\ndrain_seconds = \"x\"\n";
    Daemon daemon(install);
    daemon.awaits(faultyList ? "popup.dom: cannot be read" : "listen.drain_seconds: expected whole number of seconds");
    EXPECT_EQ(daemon.status(), 2);
  }
}

TEST(Supervisor, ClientsBeyondTheLimitWaitAndTheEndIsBounded) {
  Install install;
  install.configuration += std::string(refuseAll) + "[listen]\nmax_connections = 1\ndrain_seconds = 1\n";
  Daemon daemon(install);
  std::string address = daemon.awaits("listening on ");
  int first = connectTo(address), second = connectTo(address);
  ask(second);
  struct pollfd readable {
    second, POLLIN, 0
  };
  EXPECT_EQ(poll(&readable, 1, 500), 0) << "the first client's process still waits for its request";
  close(first);
  EXPECT_NE(answer(second).find(refusal), std::string::npos);
  close(second);

  int idle = connectTo(address);
  usleep(200000);
  int64_t told = milliseconds();
  kill(daemon.pid, SIGTERM);
  EXPECT_EQ(answer(idle), "");
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_GE(milliseconds() - told, 900) << "running connections get drain_seconds";
  EXPECT_LT(milliseconds() - told, 8000);
}

TEST(Child, ARefusedClientGetsTenSecondsForItsHeadAndLeavesNothingInTheLog) {
  Install install;
  install.configuration += std::string(refuseAll) + "[log]\ndebug_level = 7\n";
  Daemon daemon(install);
  std::string address = daemon.awaits("listening on ");
  int dribbler = connectTo(address), flooder = connectTo(address), polite = connectTo(address);
  send(flooder, std::string(65536, 'x').data(), 65536, MSG_NOSIGNAL);
  EXPECT_NE(answer(flooder).find(refusal), std::string::npos);
  for (std::string piece : {"HEAD http://forged.example/\033[2J HTTP/1.1\r", "\n\r", "\n"}) {
    send(polite, piece.data(), piece.size(), 0);
    usleep(100000);
  }
  std::string head = answer(polite);
  EXPECT_TRUE(head.starts_with("HTTP/1.1 403") && head.ends_with("\r\n\r\n")) << head;
  int64_t began = milliseconds();
  while (milliseconds() - began < 20000 && send(dribbler, "x", 1, MSG_NOSIGNAL) == 1) usleep(300000);
  EXPECT_LT(milliseconds() - began, 14000);
  kill(daemon.pid, SIGTERM);
  EXPECT_EQ(daemon.status(), 0);
  std::string log = readFile(install.root.log("netsift-debug.log"));
  EXPECT_NE(log.find("Client IP:127.0.0.1,STATUS:BLOCKED,Access List:level 3\n"), std::string::npos) << log;
  EXPECT_EQ(log.find("forged"), std::string::npos) << log;
  for (int sock : {dribbler, flooder, polite}) close(sock);
}

TEST(Child, ClosingLeavesTheAnswerReadableAlthoughTheRequestWasNotRead) {
  struct sockaddr_in any {};
  parseEndpoint("127.0.0.1:0", &any);
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  bind(listener, reinterpret_cast<struct sockaddr *>(&any), sizeof any);
  socklen_t length = sizeof any;
  getsockname(listener, reinterpret_cast<struct sockaddr *>(&any), &length);
  listen(listener, 1);
  int client = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(connect(client, reinterpret_cast<struct sockaddr *>(&any), length), 0);
  int server = accept(listener, nullptr, nullptr);
  std::string unread(60000, 'x');
  send(client, unread.data(), unread.size(), 0);
  send(server, "the answer", 10, 0);
  pid_t closer = fork();
  if (closer == 0) {
    close(client);
    int64_t began = milliseconds();
    closeGently(server);
    _exit(milliseconds() - began < 3500 ? 0 : 1);
  }
  close(server);
  usleep(300000);
  EXPECT_EQ(answer(client), "the answer") << "a reset would have lost it";
  int status = -1;
  waitpid(closer, &status, 0); /* the client does not close: two seconds are the end */
  EXPECT_EQ(status, 0);
}
