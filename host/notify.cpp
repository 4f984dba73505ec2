#include "host/notify.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "host/clock.h"
#include "host/problems.h"
#include "host/reportedUrls.h"
#include "netsift.h"

namespace netsift::host {

namespace {

bool changedLists;

/* The text up to its NUL; false when there is none. */
bool untilNul(std::string_view bytes, std::string *text) {
  size_t end = bytes.find('\0');
  if (end == bytes.npos) return false;
  text->assign(bytes.substr(0, end));
  return true;
}

std::string addUrl(std::string_view bytes) {
  int category = -1;
  auto [end, error] = std::from_chars(bytes.data(), bytes.data() + bytes.size(), category);
  bytes.remove_prefix(static_cast<size_t>(end - bytes.data()));
  if (error != std::errc{} || category < 0 || !bytes.starts_with(' ')) return "a URL report without a category";
  std::string reported;
  if (!untilNul(bytes.substr(1), &reported) || reported.empty()) return "a URL report without a whole URL";
  std::string fault = addReportedUrl(category, reported);
  if (fault.empty()) changedLists = true;
  return fault;
}

std::string addText(std::string_view bytes) {
  std::string text;
  if (!untilNul(bytes, &text)) return "a text to add that is not whole";
  if (URL_CACHESIZE >= mostCachedTexts) return "a text to add to a full list";
  if (append(&URL_CACHE, text.c_str()) != 1) return "a text to add, for which there is no memory";
  URL_CACHESIZE++;
  return "";
}

void deleteHead() {
  if (URL_CACHE == nullptr) return;
  TextNode *head = URL_CACHE;
  URL_CACHE = head->next;
  URL_CACHESIZE--;
  std::free(head->text);
  std::free(head);
}

void finish(Message &message, const std::string &fault) {
  close(message.sock);
  if (!fault.empty()) say("notification socket: refused " + fault);
}

}  // namespace

void acceptMessages(int listener, Messages &messages) {
  while (messages.size() < mostMessages) {
    int sock = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (sock < 0) return;
    messages.push_back({sock, milliseconds() + messageMilliseconds, {}});
  }
}

bool readMessage(Message &message) {
  char block[largestMessage + 1];
  ssize_t count = recv(message.sock, block, sizeof block - message.bytes.size(), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (count <= 0) {
    finish(message, message.bytes.empty() ? "" : handleMessage(message.bytes));
    return true;
  }
  message.bytes.append(block, static_cast<size_t>(count));
  if (message.bytes.size() <= largestMessage) return false;
  finish(message, "a message of more than " + std::to_string(largestMessage) + " bytes");
  return true;
}

void dropLateMessages(Messages &messages, int64_t now) {
  std::erase_if(messages, [now](Message &message) {
    if (message.deadline > now) return false;
    finish(message, "a message that was not whole within a second");
    return true;
  });
}

bool listsHaveChanged() { return std::exchange(changedLists, false); }

std::string handleMessage(std::string_view bytes) {
  std::string_view rest = bytes.substr(std::min<size_t>(4, bytes.size()));
  if (bytes.starts_with("URL:")) return addUrl(rest);
  if (bytes.starts_with("ADD:")) return addText(rest);
  if (!bytes.starts_with("DEL:")) return "what is no message";
  deleteHead();
  return "";
}

}  // namespace netsift::host
