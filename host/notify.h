/* Messages from connections' processes over the notification socket: one a connection, complete when it is closed.
   "URL:" <category> " " <url> NUL goes to addReportedUrl, "ADD:" <text> NUL to the tail of URL_CACHE, "DEL:" takes its
   head. Nothing here waits: the descriptors are polled by the server, and a peer that sends nothing for a second, too
   much, or no such message costs one line on standard error. */
#ifndef NETSIFT_HOST_NOTIFY_H
#define NETSIFT_HOST_NOTIFY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netsift::host {

constexpr size_t largestMessage = 4096;
constexpr size_t mostMessages = 64; /* open at once; further ones wait in the backlog */
constexpr int64_t messageMilliseconds = 1000;
constexpr int32_t mostCachedTexts = 100000;

struct Message {
  int sock;
  int64_t deadline; /* milliseconds() */
  std::string bytes;
};

using Messages = std::vector<Message>;

/* Takes the connections that wait, as many as there is room for. */
void acceptMessages(int listener, Messages &messages);

/* Reads what has come of a message. True when it is over and its socket closed: it ended and was acted on, or was
   refused. */
bool readMessage(Message &message);

/* Drops the messages whose time is over. */
void dropLateMessages(Messages &messages, int64_t now);

/* Whether a message has changed the lists since this was asked last. */
bool listsHaveChanged();

/* Acts on a whole message. Returns what is wrong with it, "" when nothing is. */
std::string handleMessage(std::string_view bytes);

}  // namespace netsift::host

#endif
