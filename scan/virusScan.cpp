#include "scan/virusScan.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "http/wait.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/settings.h"
#include "util/ownedText.h"
#include "util/unixSocket.h"

namespace {

constexpr const char *vlavSocket = "/opt/Velmora/var/run/vlav";
constexpr const char *vlcavSocket = "/opt/Velmora/var/run/vlcavd.sock";

constexpr int infected = 1, clean = 0, engineDown = -1, scanError = -2, engineBroken = -3;

constexpr int lineMaximum = 2047; /* of a reply line, as readline counts */

/* Bits of the primary engine's status for objects that it could not look into. */
constexpr int encrypted = 8, corrupt = 16, cancelled = 64;

/* atoi, which is undefined for numbers that do not fit. */
int leadingNumber(const char *text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

void setName(char *name, const char *text) {
  if (name != nullptr) std::strcpy(name, text);
}

/* The detail of a failure is not passed on: of "AV Sock Connect - <error>" and its like the caller's buffer gets what
   fits 4 bytes. */
int32_t reportDown(char *name) {
  setName(name, "AV ");
  return engineDown;
}

int32_t judgeStatus(const char *reply, char *name) {
  const int status = leadingNumber(reply);
  if (status == 2 || status == 4) {
    const char *virus = reply + 2;  // past the digit and one separator; the reply is followed by zeros
    setName(name, virus);
    dprintf(2, " Object is INFECTED (%s)\n", netsift::peerText(virus));
    return infected;
  }
  if (status == 32) {
    dprintf(7, " ERROR in scanning\n");
    return engineDown;
  }
  if ((status & encrypted) != 0) {
    dprintf(2, "Object encrypted.\n");
    return clean;
  }
  if ((status & corrupt) != 0) {
    dprintf(2, "Object corrupt.\n");
    return clean;
  }
  if ((status & cancelled) != 0) {
    dprintf(2, "Scan cancelled externally before completion.\n");
    return clean;
  }
  if (status != 0) {
    dprintf(2, "ERROR: Unknown scan status\n");
    return engineDown;
  }
  dprintf(2, "Object is CLEAN\n");
  return clean;
}

/* A connection for a line dialogue, or -1. */
int reachEngine(const char *path) {
  const int fd = netsift::unixSocket();
  if (fd == 0) {
    // Only descriptor 0 counts as a failure of its own; a socket that was not made fails at the connect. It is left
    // open in the place of the standard input that was closed, so that the next call gets another one.
    dprintf(1, "Error creating socket for connection to AV engine\n");
    return -1;
  }
  if (netsift::connectUnixSocket(fd, path) == 0) return fd;
  dprintf(1, "Error Connecting to AV engine\n");
  if (fd > 0) close(fd);
  return -1;
}

bool sendOnce(int fd, std::string_view request) { return send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0; }

/* As select answers: true when there is something to read or the stream has ended within the limit; a negative limit
   and an interrupted wait are failures. */
bool waitForGreeting(int fd, int32_t limitSeconds) {
  return limitSeconds >= 0 && netsift::waitOnce(fd, POLLIN, std::chrono::seconds(limitSeconds)) > 0;
}

/* Takes the virus name of a line such as "322-Name object": after the first "-", up to a blank or the line's end. */
void takeName(const char *line, char *name) {
  const char *dash = std::strchr(line, '-');
  if (dash == nullptr || name == nullptr) return;
  const char *virus = dash + 1;
  size_t length = std::strcspn(virus, " ");
  if (virus[length] == '\0') {
    while (length > 0 && (virus[length - 1] == '\r' || virus[length - 1] == '\n')) length--;
  }
  std::memcpy(name, virus, length);
  name[length] = '\0';
}

/* The verdict that a line of the primary engine's dialogue gives, or none when the next line is to be read. */
std::optional<int32_t> judgeLine(const char *line, char *name) {
  const int code = leadingNumber(line);
  if (line[0] == '4') {
    dprintf(2, "error in scanning\n");
    return scanError;
  }
  if (line[0] == '5') {
    dprintf(2, "unrecoverable error in scanning\n");
    return engineBroken;
  }
  if (line[0] == '3') {
    if (code >= 322 && code <= 324) takeName(line, name);
    return std::nullopt;
  }
  if (code >= 230 && code <= 232) return infected;
  return line[0] == '2' ? std::optional(clean) : std::nullopt;
}

/* Ends a dialogue: says goodbye and lets the engine have its last word. */
void quit(int fd, std::string_view goodbye) {
  char line[lineMaximum];
  sendOnce(fd, goodbye);
  readline(fd, line, lineMaximum);
}

/* printf into an allocation; none when memory is short. */
__attribute__((format(printf, 1, 2))) netsift::Text formatted(const char *format, ...) {
  char *text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  if (vasprintf(&text, format, arguments) < 0) text = nullptr;
  va_end(arguments);
  return netsift::Text(text);
}

int32_t askStatus(int fd, const char *path, char *name) {
  char request[255];
  std::snprintf(request, sizeof request, "SCAN 0 %s", path);
  if (!sendOnce(fd, request)) return reportDown(name);

  char reply[256] = {};
  const ssize_t length = read(fd, reply, sizeof reply - 1);
  if (length < 0) return reportDown(name);
  if (length == 0) return clean;
  dprintf(2, "---------Scan result for file %s\n", path);
  return judgeStatus(reply, name);
}

int32_t askClamd(int fd, const char *path) {
  const netsift::Text request = formatted("SCAN %s", path);
  if (!request) return engineDown;
  dprintf(4, "%s \n", request.get());
  if (!sendOnce(fd, request.get())) return engineDown;

  char line[lineMaximum];
  if (readline(fd, line, lineMaximum) <= 0) return engineDown;
  netsift::tracePeerLine(4, line);

  int32_t verdict = scanError;
  if (std::strstr(line, "ERROR") != nullptr) {
    dprintf(2, "error in scanning\n");
  } else if (std::strstr(line, "FOUND") != nullptr) {
    verdict = infected;
  } else if (std::strstr(line, "OK") != nullptr) {
    verdict = clean;
  }
  quit(fd, "QUIT");
  return verdict;
}

int32_t askInLines(int fd, const char *path, char *name) {
  if (!waitForGreeting(fd, MAX_TIME_FOR_VLAV)) return engineDown;
  char line[lineMaximum];
  if (readline(fd, line, lineMaximum) <= 0) return engineDown;
  if (line[0] == '4' || line[0] == '5') return engineDown;
  netsift::tracePeerLine(4, line);

  const netsift::Text request = formatted("SCAN abefghijkpqRSTUW %s\r\n", path);
  if (!request || !sendOnce(fd, request.get())) return engineDown;
  for (;;) {
    if (readline(fd, line, lineMaximum) <= 0) return engineDown;
    netsift::tracePeerLine(4, line);
    const std::optional<int32_t> verdict = judgeLine(line, name);
    if (!verdict) continue;
    quit(fd, "QUIT\r\n");
    return *verdict;
  }
}

}  // namespace

int32_t Scan(const char *path, char *name) {
  dprintf(2, "-----------Scan \n");
  setName(name, "");
  if (path == nullptr) {
    setName(name, "invalid null argument(s)");
    return engineDown;
  }

  const int fd = netsift::unixSocket();
  if (fd < 0) return reportDown(name);
  const bool connected = netsift::connectUnixSocket(fd, vlavSocket) == 0;
  const int32_t verdict = connected ? askStatus(fd, path, name) : reportDown(name);
  close(fd);
  return verdict;
}

int32_t isInfectedclam(const char *path) {
  dprintf(7, "into the isinfectedclam funtion\n");  // misspelt for as long as it has been logged
  const int fd = path == nullptr ? -1 : reachEngine(vlcavSocket);
  if (fd < 0) return engineDown;
  const int32_t verdict = askClamd(fd, path);
  close(fd);
  return verdict;
}

int32_t isInfected(const char *path, char *name) {
  dprintf(7, "inside isInfected\n");
  const int fd = path == nullptr ? -1 : reachEngine(vlavSocket);
  if (fd < 0) return engineDown;
  const int32_t verdict = askInLines(fd, path, name);
  close(fd);
  return verdict;
}

int readline(int fd, char *buffer, int maximum) {
  int stored = 0;
  ssize_t got = 1;
  bool lineEnd = false;
  while (stored + 1 < maximum && !lineEnd) {
    got = read(fd, &buffer[stored], 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    lineEnd = buffer[stored++] == '\n';
  }
  if (maximum > 0) buffer[stored] = '\0';
  if (got < 0) return -1;
  if (got == 0 && stored == 0) return 0;
  return lineEnd ? stored : stored + 1;
}

int getAVRespCode(const char *line) {
  constexpr int weights[] = {100, 10, 1};
  int code = -111 * '0';
  for (int weight : weights) {
    if (line == nullptr || *line == '\0') break;
    code += weight * *line++;
  }
  return code;
}
