#include "http/clientHello.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "http/wait.h"

namespace netsift {
namespace {

constexpr unsigned handshakeRecord = 22, clientHelloMessage = 1, majorVersion = 3;
constexpr size_t recordHeader = 5, messageHeader = 4, longestFragment = 16384;
constexpr unsigned serverNameExtension = 0, hostNameType = 0;
constexpr size_t randomBytes = 32, longestSessionId = 32;

/* Takes from the front; once there is too little, everything it gives is empty. */
struct Cursor {
  std::string_view rest;
  bool broken = false;
};

std::string_view take(Cursor &cursor, size_t count) {
  if (cursor.rest.size() < count) {
    cursor.broken = true;
    cursor.rest = {};
    return {};
  }
  const std::string_view taken = cursor.rest.substr(0, count);
  cursor.rest.remove_prefix(count);
  return taken;
}

size_t takeNumber(Cursor &cursor, size_t bytes) {
  size_t number = 0;
  for (const char byte : take(cursor, bytes)) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/* A vector: its length in so many bytes, and as much. */
std::string_view takeVector(Cursor &cursor, size_t lengthBytes) {
  return take(cursor, takeNumber(cursor, lengthBytes));
}

/* A list of exactly one name, which is a host's. */
bool readServerName(std::string_view extension, std::string &name) {
  Cursor outer{extension};
  Cursor list{takeVector(outer, 2)};
  const size_t type = takeNumber(list, 1);
  name = takeVector(list, 2);
  return !outer.broken && outer.rest.empty() && !list.broken && list.rest.empty() && type == hostNameType &&
         !name.empty();
}

/* Those of a message, none of which may be too short or too long for the others; a second name is none at all. */
bool readExtensions(std::string_view extensions, std::string &name) {
  Cursor list{extensions};
  bool isNamed = false;
  while (!list.rest.empty()) {
    const size_t type = takeNumber(list, 2);
    const std::string_view extension = takeVector(list, 2);
    if (list.broken) return false;
    if (type != serverNameExtension) continue;
    if (isNamed || !readServerName(extension, name)) return false;
    isNamed = true;
  }
  return true;
}

bool readMessage(std::string_view message, std::string &name) {
  Cursor body{message};
  const bool isVersion = takeNumber(body, 1) == majorVersion;
  take(body, 1 + randomBytes);
  const std::string_view session = takeVector(body, 1), ciphers = takeVector(body, 2), methods = takeVector(body, 1);
  if (body.broken || !isVersion || session.size() > longestSessionId) return false;
  if (ciphers.empty() || ciphers.size() % 2 != 0 || methods.empty()) return false;
  if (body.rest.empty()) return true; /* as before TLS 1.3 it may end here */
  const std::string_view extensions = takeVector(body, 2);
  return !body.broken && body.rest.empty() && readExtensions(extensions, name);
}

/* How long the message is with its header, as far as its bytes tell; 0: it is no ClientHello. */
size_t messageSize(std::string_view message) {
  if (message.empty()) return messageHeader;
  Cursor cursor{message};
  if (takeNumber(cursor, 1) != clientHelloMessage) return 0;
  const size_t length = takeNumber(cursor, 3);
  return messageHeader + (cursor.broken ? 0 : length);
}

/* Whether bytes may be the begin of a record's header. */
bool maybeRecord(std::string_view header) {
  if (!header.empty() && static_cast<unsigned char>(header[0]) != handshakeRecord) return false;
  return header.size() < 2 || static_cast<unsigned char>(header[1]) == majorVersion;
}

/* Joins what there is of the message, record after record. */
Parse joinRecords(std::string_view bytes, std::string &message, size_t &needed) {
  for (size_t from = 0;;) {
    const std::string_view record = bytes.substr(from);
    if (!maybeRecord(record)) return Parse::bad;
    needed = from + recordHeader;
    if (record.size() < recordHeader) return Parse::more;
    Cursor length{record.substr(recordHeader - 2, 2)};
    const size_t longest = takeNumber(length, 2);
    if (longest == 0 || longest > longestFragment) return Parse::bad;
    const std::string_view fragment = record.substr(recordHeader, longest);
    message += fragment;
    const size_t whole = messageSize(message);
    if (whole == 0 || whole > mostHelloBytes) return Parse::bad;
    if (message.size() >= whole) {
      message.resize(whole);
      return Parse::done;
    }
    from += recordHeader + fragment.size();
    needed = from + std::min(longest - fragment.size(), whole - message.size());
    if (fragment.size() < longest) return Parse::more;
  }
}

enum class Peek { goOn, done, bad, ended };

/* Reads what stands on the socket; `seen` is how much that was. */
Peek peekHello(int client, std::string &bytes, ClientHello &hello, size_t &seen) {
  const ssize_t count = recv(client, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return Peek::goOn;
  if (count <= 0) return Peek::ended;
  seen = static_cast<size_t>(count);
  switch (readClientHello({bytes.data(), seen}, hello)) {
    case Parse::done:
      return Peek::done;
    case Parse::bad:
      return Peek::bad;
    default:
      return Peek::goOn;
  }
}

/* The socket counts as readable once it has so many bytes; what waits there would wake every wait otherwise. */
void wakeAt(int fd, size_t bytes) {
  const int lowest = static_cast<int>(bytes);
  setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &lowest, sizeof lowest);
}

HelloRead awaitHello(int client, int upstream, int seconds, ClientHello &hello) {
  using Clock = std::chrono::steady_clock;
  constexpr useconds_t pause = 1000; /* after a wake without news: the system may be short of memory for what waits */
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  std::string bytes(mostHelloBytes, '\0');
  for (size_t seen = 0;;) {
    pollfd both[] = {{client, POLLIN | POLLRDHUP, 0}, {upstream, POLLIN, 0}};
    const Clock::duration left = end - Clock::now();
    if (left <= Clock::duration::zero()) return HelloRead::timedOut;
    if (const int ready = waitOnce(both, left); ready <= 0) {
      if (ready == 0 || errno == EINTR) continue;
      return HelloRead::clientLeft;
    }
    const size_t before = seen;
    const Peek peek = both[0].revents == 0 ? Peek::goOn : peekHello(client, bytes, hello, seen);
    if (peek == Peek::done) return HelloRead::done;
    if (peek == Peek::bad) return HelloRead::notTls;
    if (both[1].revents != 0) {
      return recv(upstream, bytes.data(), 1, MSG_PEEK | MSG_DONTWAIT) > 0 ? HelloRead::serverFirst
                                                                          : HelloRead::serverLeft;
    }
    if (peek == Peek::ended || (seen == before && (both[0].revents & ~POLLIN) != 0)) return HelloRead::clientLeft;
    if (seen == before) usleep(pause);
    wakeAt(client, hello.needed);
  }
}

}  // namespace

Parse readClientHello(std::string_view bytes, ClientHello &hello) {
  hello = {};
  std::string message;
  const Parse joined = joinRecords(bytes.substr(0, mostHelloBytes), message, hello.needed);
  if (joined == Parse::more) return hello.needed > mostHelloBytes ? Parse::bad : Parse::more;
  if (joined == Parse::bad) return Parse::bad;
  return readMessage(std::string_view(message).substr(messageHeader), hello.serverName) ? Parse::done : Parse::bad;
}

HelloRead awaitClientHello(int client, int upstream, int seconds, ClientHello &hello) {
  const HelloRead read = awaitHello(client, upstream, seconds, hello);
  wakeAt(client, 1);
  return read;
}

}  // namespace netsift
