#include "log/debugLog.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "log/logStamp.h"
#include "state/connection.h"

namespace {

constexpr size_t lineSize = 1024;       /* terminator included */
constexpr size_t debugStringLimit = 50; /* bytes kept of the debug string */
constexpr int belowEveryLevel = -129;   /* levels are signed bytes */

FILE *stream;
FILE *openedHere; /* what dFileOpen opened last and nobody has closed; not the stream once the host has set its own */
signed char currentLevel;
char debugString[debugStringLimit + 1];
signed char debugStringLength; /* 0: the string is not used, though its text stays */
bool pidFlag, timeFlag;
char *lastStamp; /* the copy that the log put into errorcode last */
char *keptStamp; /* one that is released no more by the next line */

void useStream(FILE *next) {
  stream = next;
  netsift_debugThreshold = stream == nullptr ? belowEveryLevel : currentLevel;
}

/* Writes the prefix into the line and returns its length. */
size_t writePrefix(char (&line)[lineSize]) {
  const time_t now = std::time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  const int length = std::snprintf(
      line, sizeof line, "%s%02d:%02d:%02d %02d:%02d:%02d Netsift[%d]: ", debugStringLength > 0 ? debugString : "",
      local.tm_mon + 1, local.tm_mday, local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec, getpid());
  return static_cast<size_t>(length); /* far below the line's size: the only text in it has 50 bytes */
}

void replaceStamp(const char *prefix) {
  char *previous = lastStamp;
  lastStamp = strdup(prefix);
  errorcode = lastStamp;
  std::free(previous);
}

}  // namespace

void netsift::keepStamp() {
  if (errorcode == keptStamp) return;
  std::free(keptStamp);
  keptStamp = nullptr;
  if (errorcode == lastStamp) keptStamp = std::exchange(lastStamp, nullptr);
}

int netsift_debugThreshold = belowEveryLevel;

int dInitialise(const char *path, int8_t level, const char *text, uint8_t printPid, uint8_t printTime) {
  if (path != nullptr && dFileOpen(path) == 0) return 0;
  setDebugLevel(level);
  setDebugString(text);
  pidFlag = printPid != 0;
  timeFlag = printTime != 0;
  return 1;
}

int dFileOpen(const char *path) {
  FILE *opened = path == nullptr ? nullptr : std::fopen(path, "a");
  if (openedHere != nullptr) std::fclose(openedHere);
  openedHere = opened;
  useStream(opened);
  return opened == nullptr ? 0 : 1;
}

void dFileStreamSet(FILE *next) { useStream(next); }

int dFileClose(void) {
  if (stream == nullptr) return 0;
  FILE *closing = stream;
  if (openedHere == closing) openedHere = nullptr;
  useStream(nullptr);
  return std::fclose(closing);
}

int setDebugLevel(int level) {
  currentLevel = static_cast<signed char>(level);
  useStream(stream);
  return currentLevel;
}

void setDebugString(const char *text) {
  debugStringLength = 0;
  if (text == nullptr) return;
  const size_t length = strnlen(text, debugStringLimit);
  std::memmove(debugString, text, length);
  debugString[length] = '\0';
  debugStringLength = static_cast<signed char>(length);
}

char *getDebugString(void) { return strdup(debugString); }

void printPID(void) { pidFlag = true; }
void skipPID(void) { pidFlag = false; }
void printTime(void) { timeFlag = true; }
void skipTime(void) { timeFlag = false; }

int netsift_dprintf(int level, const char *format, ...) {
  if (static_cast<signed char>(level) > netsift_debugThreshold) return 0;
  const int callersErrno = errno;

  char line[lineSize];
  const size_t prefixLength = writePrefix(line);
  /* The message first: it may print errorcode, which the new stamp replaces. */
  const bool withMessage = debugStringLength > 0 || pidFlag || timeFlag;
  if (withMessage) {
    va_list arguments;
    va_start(arguments, format);
    errno = callersErrno; /* for "%m" */
    if (std::vsnprintf(line + prefixLength, lineSize - prefixLength, format, arguments) < 0) line[prefixLength] = '\0';
    va_end(arguments);
  }
  std::fputs(line, stream);
  std::fflush(stream);

  line[prefixLength] = '\0';
  replaceStamp(line);
  errno = callersErrno;
  return 0;
}
