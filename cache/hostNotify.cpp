#include "cache/hostNotify.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "log/debugLog.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/unixSocket.h"

namespace {

constexpr const char *hostSocket = "/opt/Velmora/var/run/netsift.sock";

/* A connection to the host, or -1. */
int reachHost() {
  const int fd = netsift::unixSocket();
  if (fd < 0) {
    dprintf(1, "error creating uds socket in child %s\n", std::strerror(errno));
    return -1;
  }
  if (netsift::connectUnixSocket(fd, hostSocket) == 0) return fd;
  dprintf(1, "error connecting to UDS Socket in child %s\n", std::strerror(errno));
  if (netsift::strictHttp()) close(fd); /* else it stays open until the process ends, as it always has */
  return -1;
}

void sendPiece(int fd, std::string_view piece, int failureLevel) {
  if (!netsift::writeAll(fd, piece)) dprintf(failureLevel, "error in sending command to parent\n");
}

/* The text with its zero byte. */
std::string_view terminated(const char *text) { return {text, std::strlen(text) + 1}; }

}  // namespace

void sendURLToParent(int category, const char *reportedUrl) {
  const int fd = reachHost();
  if (fd < 0) return;
  dprintf(4, "sending command to parent\n");
  sendPiece(fd, "URL:", 2);
  sendPiece(fd, std::to_string(category) + " ", 2);
  sendPiece(fd, terminated(reportedUrl == nullptr ? "" : reportedUrl), 2);
  close(fd);
}

void addtoURL_CACHESIZE(const char *text) {
  const int fd = reachHost();
  if (fd < 0) return;
  dprintf(7, "sending command to parent\n");
  dprintf(7, "URL_CACHESIZE is %d\n", URL_CACHESIZE);
  const std::string message = std::string("ADD:") + (text == nullptr ? "" : text);
  sendPiece(fd, terminated(message.c_str()), 1);
  close(fd);
}

void deletefromURL_CACHESIZE(void) {
  const int fd = reachHost();
  if (fd < 0) return;
  dprintf(7, "sending command to parent\n");
  dprintf(7, "URL_CACHESIZE is %d\n", URL_CACHESIZE);
  constexpr char message[16] = "DEL:"; /* the host reads 16 bytes, whatever follows the fourth */
  sendPiece(fd, {message, sizeof message}, 2);
  close(fd);
}

int append(TextNode **head, const char *text) {
  if (head == nullptr || text == nullptr) return 0;
  auto *node = static_cast<TextNode *>(std::malloc(sizeof(TextNode)));
  char *copy = strdup(text);
  if (node == nullptr || copy == nullptr) {
    if (*head == nullptr) dprintf(7, "system unable to allocate memory");
    std::free(node);
    std::free(copy);
    return 0;
  }
  *node = {copy, nullptr};
  TextNode **tail = head;
  while (*tail != nullptr) tail = &(*tail)->next;
  *tail = node;
  return 1;
}

void display(const TextNode *head) {
  for (; head != nullptr; head = head->next) std::printf("%s\n", head->text);
}

void delete_all_nodes(TextNode *head) {
  while (head != nullptr) {
    TextNode *next = head->next;
    std::free(head->text);
    std::free(head);
    head = next;
  }
}

int compstrall(const char *text, const TextNode *head) {
  if (text == nullptr) return 0;
  for (; head != nullptr; head = head->next) {
    if (std::strcmp(head->text, text) == 0) return 1;
  }
  return 0;
}
