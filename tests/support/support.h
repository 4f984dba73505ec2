/* What the tests of every folder share, with the headers that nearly all of them need. */
#ifndef NETSIFT_TESTS_SUPPORT_H
#define NETSIFT_TESTS_SUPPORT_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "http/strictCoding.h"
#include "state/connection.h"
#include "state/records.h"
#include "state/results.h"
#include "state/settings.h"

namespace netsift::test {

/* A scratch folder with the system's fixed folders in it, made the installroot; removed with the object. */
class ScratchRoot {
 public:
  ScratchRoot();
  ~ScratchRoot();
  ScratchRoot(const ScratchRoot &) = delete;

  const std::string &path() const { return path_; }
  std::string config(const std::string &file) const { return path_ + "/opt/Velmora/etc/netsift/" + file; }
  std::string log(const std::string &file) const { return path_ + "/var/Velmora/var/log/" + file; }

 private:
  std::string path_;
};

/* Captures the debug log at a level, messages included, until it is destroyed. */
class LogCapture {
 public:
  explicit LogCapture(int level);
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;

  std::string text() const;                  /* everything written so far, prefixes included */
  std::vector<std::string> messages() const; /* the messages of one line each, without prefix and line end */
  bool has(std::string_view message) const;  /* some line's message is exactly this (without its line end) */

 private:
  char *buffer_ = nullptr;
  size_t size_ = 0;
  FILE *stream_;
};

/* A connected pair of stream sockets, over TCP with AF_INET: `near` for the code under test, `far` for the test. Closed
   with the object. */
struct SocketPair {
  int near, far;
  explicit SocketPair(int family = AF_UNIX);
  ~SocketPair();
  SocketPair(const SocketPair &) = delete;
  void send(std::string_view bytes) const; /* far writes */
  std::string receive() const;             /* what has arrived at far, without waiting */
  void closeFar() { close(std::exchange(far, -1)); }
};

/* Text that ends, NUL included, at a page that cannot be touched: reading one byte too far is a crash. */
class GuardedText {
 public:
  explicit GuardedText(std::string_view text, bool terminated = true);
  ~GuardedText();
  GuardedText(const GuardedText &) = delete;
  char *get() const { return text_; }

 private:
  char *mapping_;
  size_t mapped_;
  char *text_;
};

void writeFile(const std::string &path, std::string_view content);
std::string readFile(const std::string &path); /* empty when there is none */

/* Makes these files the categories of words, each named like its file; makePhraseLists loads them. */
void nameCategories(std::vector<std::string> files);

/* A head made of the given lines, each ended by CR LF, followed by the empty line; to be destroyed by destroyHeader. */
Header makeHeader(std::initializer_list<std::string_view> lines);

/* The text compressed in one piece. windowBits 15: zlib, 31: gzip, -15: raw deflate. */
std::string compressed(const std::string &text, int windowBits);

/* The text of a coded body that comes in pieces of a size, through room of a size; "!" behind it when it was broken off
   or grew beyond bounds. `showsRest`: what follows the coded stream is part of it. */
std::string decoded(const ContentCodings &codings, std::string_view body, size_t pieceSize, size_t roomSize,
                    bool showsRest = false);

/* A malloc'ed text taken over as a string; "<none>" for null. */
std::string take(char *text);

}  // namespace netsift::test

using namespace netsift; /* for every test */
using namespace netsift::test;
using std::string;

#endif
