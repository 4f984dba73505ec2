/* A dialogue with a scan engine over its Unix socket. Internal to the library.

   It lasts as long as the engine likes. With StrictHttp it lasts EngineTimeout seconds in all, from the connect to the
   verdict, and ends when `clientsock` has left: a hung engine holds no process for longer. */
#ifndef NETSIFT_SCAN_ENGINE_H
#define NETSIFT_SCAN_ENGINE_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace netsift {

struct Dialogue {
  int fd; /* -1: there is no socket */
  bool strict;
  std::optional<std::chrono::steady_clock::time_point> end; /* none: no limit */
};

/* With a new socket, which nothing but concludeDialogue closes. */
Dialogue startDialogue();

/* Connects to the engine at a fixed path, behind installroot; false with errno. */
bool reachEngine(const Dialogue &dialogue, const char *path);

/* Waits for the engine to say something, for at most so many seconds; a negative limit and an interruption are
   failures, as select's. */
bool waitForGreeting(const Dialogue &dialogue, int32_t limitSeconds);

/* Sends with one send that raises no SIGPIPE. */
bool sayOnce(const Dialogue &dialogue, std::string_view text);

/* Reads what there is, as read(2) answers; -1 also when the time is over or the client has left. */
ssize_t hearOnce(const Dialogue &dialogue, char *buffer, size_t room);

/* Reads a line of at most `maximum` - 1 bytes, as readline answers. */
int hearLine(const Dialogue &dialogue, char *line, int maximum);

/* Says goodbye and lets the engine have its last word. With StrictHttp nobody waits for that: the verdict is there. */
void sayGoodbye(const Dialogue &dialogue, std::string_view goodbye);

/* Ends a dialogue, at its end or (`complete` false) half-way. One that was given up half-way leaves the socket open;
   with StrictHttp it is always closed. */
void concludeDialogue(const Dialogue &dialogue, bool complete);

}  // namespace netsift

#endif
