#include "http/strictWire.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>

#include "http/wait.h"
#include "log/requestRecord.h"

namespace netsift {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t headPeek = 16384;

/* Looks ahead, so that what follows the head stays on the socket. */
HeadRead feedHead(int fd, HeadScan &scan) {
  char bytes[headPeek];
  const ssize_t count = recv(fd, bytes, sizeof bytes, MSG_PEEK);
  if (count <= 0) return HeadRead::closed;
  size_t used = 0;
  const Parse parse = scanHead(scan, {bytes, static_cast<size_t>(count)}, used);
  if (recv(fd, bytes, used, 0) != static_cast<ssize_t>(used)) return HeadRead::closed;
  if (parse == Parse::bad) return HeadRead::refused;
  return parse == Parse::done ? HeadRead::done : HeadRead::timedOut;
}

/* `done` stands for: there is something to read. */
HeadRead toHead(Wait wait) {
  if (wait == Wait::ready) return HeadRead::done;
  if (wait == Wait::timedOut) return HeadRead::timedOut;
  return wait == Wait::clientLeft ? HeadRead::clientLeft : HeadRead::closed;
}

/* Takes raw bytes off the socket, or looks at them: 0 when the peer has closed, -1 when it broke off. */
ssize_t receive(int fd, char *out, size_t room, int flags) {
  ssize_t count;
  do {
    count = recv(fd, out, room, flags);
  } while (count < 0 && errno == EINTR);
  return count;
}

/* What was decoded before the body turned bad still counts; the fault is told with the next read. */
BodyRead spoil(BodySource &source, size_t count) {
  source.broken = true;
  return count > 0 ? BodyRead::piece : BodyRead::broken;
}

int64_t untilDeadline(const BodySource &source, int milliseconds) {
  if (source.deadline == Clock::time_point{}) return milliseconds;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(source.deadline - Clock::now()).count();
  return std::clamp<int64_t>(left, 0, milliseconds < 0 ? INT32_MAX : milliseconds);
}

/* What has arrived, for which it waits only where nothing has. A read that left room has most likely taken all that
   there was: the next one waits first. */
BodyRead receiveBody(int fd, BodySource &source, char *out, size_t room, ssize_t &received, int waitMilliseconds,
                     int client) {
  const int looks = source.exact && source.kind == BodyKind::chunked ? MSG_PEEK : 0;
  received = -1;
  if (source.hasMore) received = receive(fd, out, room, looks | MSG_DONTWAIT);
  if (received < 0) {
    if (source.hasMore && errno != EAGAIN) return BodyRead::broken;
    const BodyRead awaited = awaitBody(fd, untilDeadline(source, waitMilliseconds), client);
    if (awaited != BodyRead::piece) return awaited;
    received = receive(fd, out, room, looks);
  }
  source.hasMore = received == static_cast<ssize_t>(room);
  return received < 0 ? BodyRead::broken : BodyRead::piece;
}

BodyRead readChunked(int fd, BodySource &source, char *out, size_t room, size_t &count, int waitMilliseconds,
                     int client) {
  for (;;) {
    if (source.rawStart < source.rawEnd) {
      size_t used = 0;
      const std::string_view in(source.raw.data() + source.rawStart, source.rawEnd - source.rawStart);
      const Parse parse = decodeChunks(source.chunks, in, used, out, room, count);
      source.rawStart = source.exact ? source.rawEnd : source.rawStart + used;
      if (source.exact && receive(fd, source.raw.data(), used, 0) != static_cast<ssize_t>(used))
        return BodyRead::broken;
      if (parse == Parse::bad) return spoil(source, count);
      if (parse == Parse::done) {
        source.ended = true;
        source.excess = source.rawStart < source.rawEnd;
        return count > 0 ? BodyRead::piece : BodyRead::end;
      }
      if (count > 0) return BodyRead::piece;
    }
    ssize_t received = 0;
    const BodyRead read =
        receiveBody(fd, source, source.raw.data(), source.raw.size(), received, waitMilliseconds, client);
    if (read != BodyRead::piece) return read;
    if (received == 0) return BodyRead::broken;
    source.rawStart = 0;
    source.rawEnd = static_cast<size_t>(received);
  }
}

BodyRead readPlain(int fd, BodySource &source, char *out, size_t room, size_t &count, int waitMilliseconds,
                   int client) {
  const bool counted = source.kind == BodyKind::length;
  if (counted) room = std::min<uint64_t>(room, source.remaining);
  ssize_t received = 0;
  const BodyRead read = receiveBody(fd, source, out, room, received, waitMilliseconds, client);
  if (read != BodyRead::piece) return read;
  if (received == 0 && counted) return BodyRead::broken;
  count = static_cast<size_t>(received);
  source.ended = count == 0;
  if (source.ended) return BodyRead::end;
  if (counted) source.remaining -= count;
  source.ended = counted && source.remaining == 0;
  return BodyRead::piece;
}

}  // namespace

HeadRead readStrictHead(int fd, HeadScan &scan, Header &header, int seconds, int client) {
  const HeadRead begun = toHead(waitReadable(fd, seconds > 0 ? int64_t{1000} * seconds : -1, client));
  return begun == HeadRead::done ? readBegunHead(fd, scan, header, seconds, client) : begun;
}

HeadRead readBegunHead(int fd, HeadScan &scan, Header &header, int seconds, int client) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  for (;;) {
    const HeadRead read = feedHead(fd, scan);
    if (read == HeadRead::done) headToLines(scan, header);
    if (read != HeadRead::timedOut) return read;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    const HeadRead more = toHead(waitReadable(fd, seconds > 0 ? std::max<int64_t>(left, 0) : -1, client));
    if (more != HeadRead::done) return more;
  }
}

bool awaitRequest(int client, int idleSeconds, int semaphore, int graceMilliseconds) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(idleSeconds);
  if (semaphore == 0) return waitReadable(client, int64_t{1000} * idleSeconds) == Wait::ready;
  if (graceMilliseconds > 0) {
    const Wait first = waitReadable(client, graceMilliseconds);
    if (first != Wait::timedOut) return first == Wait::ready;
  }
  for (;;) {
    pollfd waiting[] = {{client, POLLIN, 0}, {semaphore, POLLIN, 0}};
    const int ready = waitOnce(waiting, std::max(end - Clock::now(), Clock::duration::zero()));
    if (ready == 0 || (ready < 0 && errno != EINTR)) return false;
    if (ready > 0 && waiting[0].revents != 0) return true;
    uint64_t taken; /* by another, perhaps, meanwhile */
    if (ready > 0 && read(semaphore, &taken, sizeof taken) == sizeof taken) {
      shutdown(client, SHUT_RDWR); /* nobody need wait for what it may still send */
      return false;
    }
  }
}

Word awaitWord(int upstream, int client, int milliseconds) {
  pollfd waiting[] = {{upstream, POLLIN, 0}, {client, POLLIN, 0}};
  char begin[10];
  if (waitOnce(waiting, std::chrono::milliseconds(milliseconds)) <= 0) return Word::none;
  if (waiting[1].revents != 0) return Word::client;
  const bool isInterim =
      recv(upstream, begin, sizeof begin, MSG_PEEK | MSG_DONTWAIT) == sizeof begin && begin[9] == '1';
  return isInterim ? Word::interim : Word::answer;
}

bool sendWhole(int fd, std::string_view bytes, int seconds, int flags) {
  for (int mode = MSG_DONTWAIT; !bytes.empty(); mode = 0) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), flags | mode | MSG_NOSIGNAL);
    const bool isFull = sent < 0 && mode != 0 && errno == EAGAIN;
    if (sent == 0 || (sent < 0 && !isFull && errno != EINTR)) return false;
    noteSent(fd, sent);
    if (sent > 0) bytes.remove_prefix(static_cast<size_t>(sent));
    const int64_t limit = seconds < 0 ? -1 : int64_t{seconds} * 1000;
    if (!bytes.empty() && waitWritable(fd, limit) != Wait::ready) return false;
  }
  return true;
}

bool sendWholeHead(int fd, const Header &header, int seconds, int flags) {
  std::string joined;
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) joined += line->text;
  return !joined.empty() && sendWhole(fd, joined, seconds, flags);
}

void breakOff(int fd, int seconds) {
  constexpr useconds_t pause = 1000; /* nothing tells when the last byte is acknowledged */
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  for (int unreceived = 0; ioctl(fd, SIOCOUTQ, &unreceived) == 0 && unreceived > 0 && Clock::now() < end;)
    usleep(pause);
  const sockaddr none{AF_UNSPEC, {}};
  static_cast<void>(connect(fd, &none, sizeof none));
}

void startBody(BodySource &source, const ResponseFraming &framing) {
  source.kind = framing.kind;
  source.remaining = framing.length;
  source.ended = framing.kind == BodyKind::none || (framing.kind == BodyKind::length && framing.length == 0);
}

BodyRead awaitBody(int fd, int64_t waitMilliseconds, int client) {
  switch (waitReadable(fd, waitMilliseconds, client)) {
    case Wait::ready:
      return BodyRead::piece;
    case Wait::timedOut:
      return BodyRead::timedOut;
    case Wait::clientLeft:
      return BodyRead::clientLeft;
    default:
      return BodyRead::broken;
  }
}

BodyRead readBody(int fd, BodySource &source, char *out, size_t room, size_t &count, int waitMilliseconds, int client) {
  count = 0;
  if (source.broken) return BodyRead::broken;
  if (source.ended) return BodyRead::end;
  if (source.kind == BodyKind::chunked) return readChunked(fd, source, out, room, count, waitMilliseconds, client);
  return readPlain(fd, source, out, room, count, waitMilliseconds, client);
}

}  // namespace netsift
