#include "log/requestWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "log/requestFormats.h"

namespace netsift {
namespace {

NetsiftRequestLog requestLog; /* as the host has it */
NetsiftLogBoard ownBoard;     /* where the host has none */
uint32_t openedRound;
bool isPlaceholder; /* the descriptor is kept for a file that could not be opened */
time_t nextTry;     /* of the clock that never jumps: not before it after a failure */
constexpr time_t tryPause = 1;

std::atomic_ref<uint32_t> round() { return std::atomic_ref(requestLog.board->round); }
std::atomic_ref<uint32_t> lost() { return std::atomic_ref(requestLog.board->lost); }

time_t seconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

/* Read too, to see what a write that was cut off has left. No reader of a pipe is waited for. */
int openFile() { return open(requestLog.path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640); }

void tell(const std::string &message) {
  if (requestLog.tell != nullptr) requestLog.tell(message.c_str());
}

void lose(int error) {
  nextTry = seconds() + tryPause;
  if (lost().fetch_add(1, std::memory_order_relaxed) > 0) return;
  tell(std::string(requestLog.path) + ": cannot be written: " + std::strerror(error) + "; requests are not logged");
}

void noteWritten() {
  if (lost().load(std::memory_order_relaxed) == 0) return;
  const uint32_t count = lost().exchange(0, std::memory_order_relaxed);
  if (count > 0) tell(std::string(requestLog.path) + ": is written again; lines lost: " + std::to_string(count));
}

/* The descriptor stays the same: what a connection opens is closed after it by its number. */
bool reopen() {
  const int file = openFile();
  if (file < 0) return false;
  const bool placed = dup3(file, requestLogFile, O_CLOEXEC) >= 0;
  close(file);
  isPlaceholder = isPlaceholder && !placed;
  return placed;
}

/* The disk was full in the middle of the line. Others could have written behind it; then it stays. */
void takeBack(const std::string &line, size_t written) {
  struct stat file;
  if (fstat(requestLogFile, &file) != 0 || file.st_size < static_cast<off_t>(written)) return;
  const off_t start = file.st_size - static_cast<off_t>(written);
  std::string found(written, '\0');
  const bool isRead = pread(requestLogFile, found.data(), written, start) == static_cast<ssize_t>(written);
  if (isRead && line.starts_with(found)) static_cast<void>(!ftruncate(requestLogFile, start));
}

void writeLine(const std::string &line) {
  ssize_t written;
  do {
    written = write(requestLogFile, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) return noteWritten();
  const int error = written < 0 ? errno : ENOSPC;
  if (written > 0) takeBack(line, static_cast<size_t>(written));
  lose(error);
}

/* Whether there is a file to write to. A log that was moved away is followed by a new one, or, when that cannot be
   made, goes on where it is. */
bool isReady() {
  const uint32_t wanted = round().load(std::memory_order_relaxed);
  const bool isMoved = wanted != openedRound;
  if (!isMoved && !isPlaceholder) return true;
  const bool opened = reopen();
  if (opened) openedRound = wanted;
  if (!opened) lose(errno);
  return opened;
}

}  // namespace

void writeRecord(const RequestRecord &done) {
  static std::string line;
  if (nextTry != 0 && seconds() < nextTry) {
    lost().fetch_add(1, std::memory_order_relaxed);
    return;
  }
  nextTry = 0;
  if (!isReady()) return;
  line.clear();
  formatRecord(requestLog.format, done, line);
  writeLine(line);
}

}  // namespace netsift

using namespace netsift;

int32_t netsift_openRequestLog(const NetsiftRequestLog *log) {
  if (requestLogFile >= 0) close(requestLogFile);
  requestLogFile = -1;
  if (log == nullptr || log->format < 0 || log->format >= NETSIFT_LOG_FORMATS) return log == nullptr ? 1 : 0;
  requestLog = *log;
  if (requestLog.board == nullptr) requestLog.board = &ownBoard;
  openedRound = round().load(std::memory_order_relaxed);
  nextTry = 0;
  requestLogFile = openFile();
  const int error = errno;
  isPlaceholder = requestLogFile < 0;
  if (isPlaceholder) requestLogFile = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (requestLogFile >= 0 && isPlaceholder) lose(error);
  return requestLogFile >= 0 ? 1 : 0;
}

bool netsift::cutsQuery() { return requestLog.cutsQuery != 0; }
bool netsift::logsBrowsers() { return requestLog.format == NETSIFT_LOG_COMBINED; }
