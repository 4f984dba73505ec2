#include "http/socket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "http/socketLine.h"
#include "http/wait.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"

namespace {

using netsift::Wait, netsift::waitOnce;
using std::chrono::nanoseconds, std::chrono::seconds;

constexpr int64_t chunkEndLimit = 10'000; /* milliseconds that getCRLF and sendCRLF wait */

nanoseconds limitOrNone(int limit) { return limit < 0 ? nanoseconds(-1) : nanoseconds(seconds(limit)); }

int sendAll(int fd, const char *buffer, int length, int limit) {
  if (length < 0) return -2;
  for (int sent = 0;;) {
    const auto extra = limit < 0 ? nanoseconds::zero() : nanoseconds(std::chrono::microseconds(1));
    const int ready = waitOnce(fd, POLLOUT, limitOrNone(limit) + extra);
    if (ready == 0) {
      dprintf(4, "timed out in sendToSocket.");
      return -1;
    }
    if (ready < 0) {
      if (errno == EINTR) continue;
      dprintf(7, "error in select in sendToSocket: %d\n", errno);
      return -2;
    }
    const ssize_t count = write(fd, buffer + sent, static_cast<size_t>(length - sent));
    if (count < 0) {
      dprintf(4, "error in writing to socket in sendToSocket.");
      return -2;
    }
    if (count == 0) {
      dprintf(7, "0 Bytes Sent.");
      return -3;
    }
    netsift::noteSent(fd, count);
    sent += static_cast<int>(count);
    if (sent == length) return 0;
  }
}

/* The loop of both block reads; `read` puts up to so many bytes there, as read(2) does. Returns the status. */
template <typename Read>
unsigned char readPieces(const char *name, int fd, unsigned length, unsigned &total, int limit, int datalen,
                         Read read) {
  for (;;) {
    const int ready = waitOnce(fd, POLLIN, limitOrNone(limit));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      dprintf(4, "%s in %s\n", ready == 0 ? "timed out" : "error in select", name);
      return ready == 0 ? 2 : 3;
    }
    const ssize_t count = read(total, length - total);
    if (count < 0) {
      dprintf(7, "error in reading in %s\n", name);
      return 3;
    }
    total += static_cast<unsigned>(count);
    dprintf(7, "%s: %zd bytes read, %u in all\n", name, count, total);
    if (total == length) return 0;
    if (static_cast<int64_t>(total) >= datalen || count == 0) return 1;
  }
}

template <typename Read>
unsigned readBlock(const char *name, int fd, unsigned length, unsigned char *status, int limit, int datalen,
                   Read read) {
  dprintf(7, "inside %s: %u bytes wanted, %d expected\n", name, length, datalen);
  unsigned total = 0;
  *status = readPieces(name, fd, length, total, limit, datalen, read);
  dprintf(7, "exiting %s: %u bytes, status %d\n", name, total, *status);
  return total;
}

/* Where a line comes from. A socket is looked ahead in: what has arrived is peeked at and exactly the line is taken. */
struct LineSource {
  int fd;
  bool lookAhead;
};

constexpr ssize_t nothingYet = -2; /* beside read's results */

/* Reads up to `room` bytes of a line and none after its end, as read(2) answers. With MSG_DONTWAIT it gives
   `nothingYet` where only a wait can tell. */
ssize_t readLinePart(LineSource &source, char *into, size_t room, int flags) {
  if (source.lookAhead) {
    const ssize_t arrived = recv(source.fd, into, room, MSG_PEEK | flags);
    if (arrived > 0) {
      const void *end = std::memchr(into, '\n', static_cast<size_t>(arrived));
      const ssize_t part = end == nullptr ? arrived : static_cast<const char *>(end) - into + 1;
      return recv(source.fd, into, static_cast<size_t>(part), 0);
    }
    if (arrived == 0) return 0;
    const bool undecided = flags == MSG_DONTWAIT && (errno == EAGAIN || errno == EBADF);
    if (errno != ENOTSOCK) return undecided ? nothingYet : arrived;
    source.lookAhead = false;
  }
  return flags == MSG_DONTWAIT ? nothingYet : read(source.fd, into, 1);
}

/* A line as it grows: `capacity` bytes and a terminator behind them. */
struct LineBuffer {
  char *text;
  unsigned capacity;
  unsigned reserve; /* how much further it may grow */
};

constexpr unsigned firstLineCapacity = 512;
constexpr unsigned lineGrowth = 256;

bool grow(LineBuffer &line) {
  const unsigned step = std::min(line.reserve, lineGrowth);
  auto *grown = static_cast<char *>(std::realloc(line.text, static_cast<size_t>(line.capacity) + step + 1));
  if (grown == nullptr) return false;
  std::memset(grown + line.capacity, 0, static_cast<size_t>(step) + 1);
  line = {grown, line.capacity + step, line.reserve - step};
  return true;
}

/* Reads the line whose first part is at hand, or still to be read (`nothingYet`). Returns the status. */
unsigned char readLine(LineSource &source, LineBuffer &line, ssize_t part, unsigned max, unsigned *length) {
  unsigned char status = 0;
  unsigned count = 0;
  while (count < max && (count == 0 || line.text[count - 1] != '\n')) {
    if (count >= line.capacity && !grow(line)) {
      dprintf(7, "II-----mem alloc failure in getsocket line");
      return 253;
    }
    if (part == nothingYet) part = readLinePart(source, line.text + count, line.capacity - count, 0);
    if (part == 0) {
      dprintf(7, "read fails as connection is closed");
      status = 1;
      break;
    }
    if (part < 0) line.text[count] = '\0';
    count += part < 0 ? 1 : static_cast<unsigned>(part);
    part = nothingYet;
  }
  line.text[count] = '\0';
  *length = count;
  return status;
}

char *startLine(LineSource source, unsigned *length, unsigned char *status, int limit) {
  const unsigned max = *length;
  const unsigned capacity = std::min(max, firstLineCapacity);
  LineBuffer line{static_cast<char *>(std::calloc(capacity + 1, 1)), capacity, max - capacity};
  if (line.text == nullptr) {
    dprintf(7, "I-----mem alloc failure in getsocket line");
    *status = 254;
    return nullptr;
  }
  /* What has arrived needs no wait. */
  const ssize_t part = max == 0 ? nothingYet : readLinePart(source, line.text, capacity, MSG_DONTWAIT);
  const Wait outcome =
      part != nothingYet ? Wait::ready : netsift::waitReadable(source.fd, limit <= 0 ? -1 : int64_t{limit} * 1000);
  if (outcome != Wait::ready) {
    const bool timedOut = outcome == Wait::timedOut;
    dprintf(4, "%s", timedOut ? "timed out in getSocketLine" : "error in select in getSocketLine");
    *status = timedOut ? 255 : 254;
    std::free(line.text);
    return nullptr;
  }
  *status = readLine(source, line, part, max, length);
  return line.text;
}

/* The loop of getSocketLine1. A failed read counts as a byte there too, and the line has no maximum. */
unsigned char readUntilEnd(int fd, char *&line, unsigned &count) {
  constexpr unsigned step = 256;
  constexpr unsigned mostFailures = 1 << 20; /* in a row: a descriptor that only fails gets no more memory */
  unsigned failures = 0;
  for (unsigned capacity = step;;) {
    /* The position after the received bytes is the one tested for a line end. It is clear, always, so the test never
       ends the loop, and the bytes need not come one at a time. */
    const ssize_t got = read(fd, line + count, capacity - count);
    if (got == 0) {
      dprintf(7, "read fails as connection is closed");
      return 1;
    }
    failures = got < 0 ? failures + 1 : 0;
    if (got < 0) line[count] = '\0';
    count += got < 0 ? 1 : static_cast<unsigned>(got);
    if (count < capacity) continue;
    const bool fits = capacity <= UINT_MAX - step && failures < mostFailures;
    auto *grown = fits ? static_cast<char *>(std::realloc(line, capacity + step)) : nullptr;
    if (grown == nullptr) {
      dprintf(7, "realloc failed");
      count--;
      return 254;
    }
    line = grown;
    std::memset(line + capacity, 0, step);
    capacity += step;
  }
}

int foldDigits(const char *line) {
  uint32_t value = 0;
  for (; *line != '\0' && *line != ' ' && *line != '\r'; line++) {
    const int character = static_cast<signed char>(*line);
    const bool decimal = character >= '0' && character <= '9';
    const int lower = character >= 'A' && character <= 'Z' ? character - 'A' + 'a' : character;
    value = value * 10 + static_cast<uint32_t>(decimal ? character - '0' : lower - 'a' + 10);
  }
  return static_cast<int>(value);
}

int sendLine(int fd, const char *text, int limit) {
  if (text == nullptr) return 0;
  const size_t length = std::strlen(text);
  const int ready = waitOnce(fd, POLLOUT, limitOrNone(limit));
  if (ready <= 0) {
    dprintf(4, "%s", ready == 0 ? "timed out in sendSocketLine" : "error in select in sendSocketLine");
    return 0;
  }
  const ssize_t count = write(fd, text, length);
  if (count < 0) {
    dprintf(7, "error in write in sendSocketLine::: %d%s\n", errno, std::strerror(errno));
    return 0;
  }
  netsift::noteSent(fd, count);
  return static_cast<int>(length);
}

}  // namespace

int sendToSocket(int fd, const void *buffer, int length, int limit) {
  dprintf(7, "inside sendToSocket: %d bytes\n", length);
  const int result = sendAll(fd, static_cast<const char *>(buffer), length, limit);
  dprintf(7, "exiting sendToSocket: %d\n", result);
  return result;
}

int sendSocketLine(int fd, const char *text, int limit) {
  dprintf(7, "inside sendSocketLine\n");
  const int result = sendLine(fd, text, limit);
  dprintf(7, "exiting sendSocketLine: %d\n", result);
  return result;
}

unsigned readFromSocket(int fd, void *buffer, unsigned length, unsigned char *status, int limit, int datalen) {
  return readBlock("readFromSocket", fd, length, status, limit, datalen,
                   [=](unsigned at, unsigned room) { return read(fd, static_cast<char *>(buffer) + at, room); });
}

unsigned readGZFromSocket(int fd, gzFile stream, void *buffer, unsigned length, unsigned char *status, int limit,
                          int datalen) {
  return readBlock("readGZFromSocket", fd, length, status, limit, datalen, [=](unsigned at, unsigned room) -> ssize_t {
    return gzread(stream, static_cast<char *>(buffer) + at, std::min<unsigned>(room, INT_MAX));
  });
}

char *getSocketLine(int fd, unsigned *length, unsigned char *status, int limit) {
  dprintf(7, "inside getSocketLine\n");
  char *line = startLine({fd, true}, length, status, limit);
  dprintf(7, "exiting getSocketLine: %u bytes, status %d\n", line == nullptr ? 0 : *length, *status);
  return line;
}

char *netsift::getSocketLineByBytes(int fd, unsigned *length, unsigned char *status, int limit) {
  return startLine({fd, false}, length, status, limit);
}

size_t netsift::takeArrivedHead(int fd, char *window, size_t size) {
  const ssize_t arrived = recv(fd, window, size, MSG_PEEK | MSG_DONTWAIT);
  if (arrived <= 0) return 0;
  const std::string_view bytes(window, static_cast<size_t>(arrived));
  for (size_t line = 0, end; (end = bytes.find('\n', line)) != bytes.npos; line = end + 1) {
    if (bytes.substr(line, end - line) != "\r") continue;
    const ssize_t taken = recv(fd, window, end + 1, MSG_WAITALL);
    return taken <= 0 ? 0 : static_cast<size_t>(taken);
  }
  return 0;
}

char *getSocketLine1(int fd, unsigned *length, unsigned char *status) {
  constexpr unsigned firstCapacity = 256;
  dprintf(7, "inside getSocketLine1\n");
  auto *line = static_cast<char *>(std::calloc(firstCapacity, 1));
  if (line == nullptr) {
    dprintf(1, "Malloc Failed.");
    *status = 1;
    return nullptr;
  }
  unsigned count = 0;
  *status = readUntilEnd(fd, line, count);
  *length = count;
  line[count] = '\0';
  dprintf(7, "exiting getSocketLine1: %u bytes, status %d\n", count, *status);
  return line;
}

int getCRLF(int fd) {
  dprintf(7, "inside getCRLF\n");
  char pair[2];
  do {
    if (netsift::waitWritable(fd, chunkEndLimit) != Wait::ready) {
      dprintf(4, "timed out or error in select in getCRLF\n");
      break;
    }
  } while (read(fd, pair, 2) == 2 && std::memcmp(pair, "\r\n", 2) == 0);
  dprintf(7, "exiting getCRLF\n");
  return -1;
}

int sendCRLF(int fd) {
  dprintf(7, "inside sendCRLF\n");
  ssize_t sent;
  do {
    if (netsift::waitWritable(fd, chunkEndLimit) != Wait::ready) {
      dprintf(4, "timed out or error in select in sendCRLF\n");
      break;
    }
    sent = write(fd, "\r\n", 2);
  } while (sent > 0 || (sent < 0 && (errno == EINTR || errno == EAGAIN)));
  dprintf(7, "exiting sendCRLF\n");
  return -1;
}

int getChunkSize(const char *line) {
  dprintf(7, "inside getChunkSize\n");
  const int size = line == nullptr ? 0 : foldDigits(line);
  dprintf(7, "exiting getChunkSize: %d\n", size);
  return size;
}
