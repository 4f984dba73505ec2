#include "scan/virusScan.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "log/debugLog.h"
#include "log/peerText.h"
#include "scan/engine.h"
#include "state/settings.h"
#include "util/ownedText.h"

using netsift::Dialogue;

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
    const char *virus = reply + 2; /* past the digit and one separator; the reply is followed by zeros */
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

/* Connects for a line dialogue. */
bool reachInLines(const Dialogue &dialogue, const char *path) {
  if (dialogue.fd == 0) {
    /* Only descriptor 0 counts as a failure of its own; a socket that was not made fails at the connect. It is left
       open in the place of the standard input that was closed, so that the next call gets another one. */
    dprintf(1, "Error creating socket for connection to AV engine\n");
    return false;
  }
  if (reachEngine(dialogue, path)) return true;
  dprintf(1, "Error Connecting to AV engine\n");
  return false;
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

/* printf into an allocation; none when memory is short. */
__attribute__((format(printf, 1, 2))) netsift::Text formatted(const char *format, ...) {
  char *text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  if (vasprintf(&text, format, arguments) < 0) text = nullptr;
  va_end(arguments);
  return netsift::Text(text);
}

/* A status is a number, and more that follows it does so after a blank or a line end. */
bool isStatus(std::string_view reply) {
  const size_t digits = std::min(reply.find_first_not_of("0123456789"), reply.size());
  return digits > 0 && (digits == reply.size() || std::strchr(" \t\r\n", reply[digits]) != nullptr);
}

int32_t askStatus(const Dialogue &dialogue, const char *path, char *name) {
  char request[255];
  std::snprintf(request, sizeof request, "SCAN 0 %s", path);
  if (!sayOnce(dialogue, request)) return reportDown(name);

  char reply[256] = {};
  const ssize_t length = hearOnce(dialogue, reply, sizeof reply - 1);
  if (length < 0) return reportDown(name);
  if (length == 0 && !dialogue.strict) return clean;
  if (length > 0) dprintf(2, "---------Scan result for file %s\n", path);
  const int32_t verdict = length == 0 ? clean : judgeStatus(reply, name);
  if (!dialogue.strict || verdict != clean || isStatus({reply, static_cast<size_t>(length)})) return verdict;
  dprintf(2, "ERROR: no scan status\n");
  return reportDown(name);
}

int32_t judgeWords(const char *line) {
  if (std::strstr(line, "ERROR") != nullptr) {
    dprintf(2, "error in scanning\n");
    return scanError;
  }
  if (std::strstr(line, "FOUND") != nullptr) return infected;
  return std::strstr(line, "OK") != nullptr ? clean : scanError;
}

/* The path and a signature's name, which come first, may hold any word. A line that filled its buffer is no reply. */
int32_t judgeLastWord(std::string_view line) {
  if (line.size() >= lineMaximum - 1 && line.back() != '\n') return scanError;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  const std::string_view word = line.substr(line.find_last_of(" \t") + 1);
  if (word == "OK") return clean;
  if (line.find("FOUND") != line.npos) return infected;
  dprintf(2, "error in scanning\n");
  return scanError;
}

/* The verdict of the second engine, or none when the dialogue broke off. */
std::optional<int32_t> askClamd(const Dialogue &dialogue, const char *path) {
  const netsift::Text request = formatted("SCAN %s", path);
  if (!request) return std::nullopt;
  dprintf(4, "%s \n", request.get());
  if (!sayOnce(dialogue, request.get())) return std::nullopt;

  char line[lineMaximum];
  const int count = hearLine(dialogue, line, lineMaximum);
  if (count <= 0) return std::nullopt;
  netsift::tracePeerLine(4, line);

  const auto stored = static_cast<size_t>(line[count - 1] == '\n' ? count : count - 1);
  const int32_t verdict = dialogue.strict ? judgeLastWord({line, stored}) : judgeWords(line);
  sayGoodbye(dialogue, "QUIT");
  return verdict;
}

/* So of the primary engine's line dialogue. */
std::optional<int32_t> askInLines(const Dialogue &dialogue, const char *path, char *name) {
  if (!waitForGreeting(dialogue, MAX_TIME_FOR_VLAV)) return std::nullopt;
  char line[lineMaximum];
  if (hearLine(dialogue, line, lineMaximum) <= 0) return std::nullopt;
  if (line[0] == '4' || line[0] == '5') return engineDown;
  netsift::tracePeerLine(4, line);

  const netsift::Text request = formatted("SCAN abefghijkpqRSTUW %s\r\n", path);
  if (!request || !sayOnce(dialogue, request.get())) return std::nullopt;
  for (;;) {
    if (hearLine(dialogue, line, lineMaximum) <= 0) return std::nullopt;
    netsift::tracePeerLine(4, line);
    const std::optional<int32_t> verdict = judgeLine(line, name);
    if (!verdict) continue;
    sayGoodbye(dialogue, "QUIT\r\n");
    return verdict;
  }
}

int32_t conclude(const Dialogue &dialogue, std::optional<int32_t> verdict) {
  concludeDialogue(dialogue, verdict.has_value());
  return verdict.value_or(engineDown);
}

}  // namespace

int32_t Scan(const char *path, char *name) {
  dprintf(2, "-----------Scan \n");
  setName(name, "");
  if (path == nullptr) {
    setName(name, "invalid null argument(s)");
    return engineDown;
  }

  const Dialogue dialogue = netsift::startDialogue();
  const bool connected = dialogue.fd >= 0 && reachEngine(dialogue, vlavSocket);
  const int32_t verdict = connected ? askStatus(dialogue, path, name) : reportDown(name);
  concludeDialogue(dialogue, connected);
  return verdict;
}

int32_t isInfectedclam(const char *path) {
  dprintf(7, "into the isinfectedclam funtion\n"); /* misspelt for as long as it has been logged */
  if (path == nullptr) return engineDown;
  const Dialogue dialogue = netsift::startDialogue();
  return conclude(dialogue, reachInLines(dialogue, vlcavSocket) ? askClamd(dialogue, path) : std::nullopt);
}

int32_t isInfected(const char *path, char *name) {
  dprintf(7, "inside isInfected\n");
  if (path == nullptr) return engineDown;
  const Dialogue dialogue = netsift::startDialogue();
  return conclude(dialogue, reachInLines(dialogue, vlavSocket) ? askInLines(dialogue, path, name) : std::nullopt);
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
