#include "connection/answer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "connection/htmlTemplate.h"
#include "http/debugLog.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/socket.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace netsift {
namespace {

constexpr int sendSeconds = 10;
constexpr char source[] = "answer.cpp";

constexpr char head[] = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nPragma: no-cache\r\n";

Text filledTemplate(const char *file) {
  const Text path = installPath({configFolder, file});
  int32_t length = 0;
  return Text(path ? readTemplate(path.get(), &length) : nullptr);
}

void freeRequest() {
  std::free(url);
  std::free(hostname);
  url = hostname = nullptr;
  destroyHeader(&reqheader);
  destroyHeader(&respheader);
}

void sendPage(const Text &page) {
  const size_t length = std::strlen(page.get());
  if (length != 0) sendHTTPBody(clientsock, page.get(), static_cast<int>(length), sendSeconds);
}

void sendBlockPage(int32_t sock) {
  const bool isMessenger = url != nullptr && std::strstr(url, "/Messenger.") != nullptr;
  const Text page = filledTemplate(isMessenger ? "template" : "template.htm");
  char lines[sizeof head + 40];
  snprintf(lines, sizeof lines, "%sContent-Length: %d\r\n\r\n", head,
           page ? static_cast<int>(std::strlen(page.get())) : 0);
  sendSocketLine(sock, lines, sendSeconds);
  if (!page) {
    dprintf(1, "error in reading template file\n");
    return;
  }
  dprintf(4, "sending html template file.\n");
  sendPage(page);
}

/* An empty answer: without StrictHttp no blank line ends its head. */
void sendEmptyAnswer(int32_t sock) {
  char lines[sizeof head + 40];
  snprintf(lines, sizeof lines, "%sContent-Length: 0\r\n%s", head, StrictHttp == 1 ? "\r\n" : "");
  sendSocketLine(sock, lines, sendSeconds);
}

}  // namespace
}  // namespace netsift

int32_t blockConnection(int32_t sock, uint8_t withpage) {
  dprintf(1, "Into the block connection function File:%s, Line:%d.\n", netsift::source, __LINE__);
  if (withpage == 0) {
    netsift::sendEmptyAnswer(sock);
  } else {
    netsift::sendBlockPage(sock);
  }
  netsift::freeRequest();
  dprintf(1, "Returning from blockConnection function.\n");
  return 0;
}

void sendError(int32_t sock) {
  dprintf(2, "into the send error template funtion\n"); /* spelled so in log filters */
  char lines[sizeof netsift::head + 4];
  snprintf(lines, sizeof lines, "%s\r\n", netsift::head);
  sendSocketLine(sock, lines, netsift::sendSeconds);
  const netsift::Text page = netsift::filledTemplate("errortemplate.htm");
  if (page) {
    dprintf(4, "sending html template file \n");
    netsift::sendPage(page);
  } else {
    dprintf(1, "error in reading template file\n");
  }
  netsift::freeRequest();
}

int32_t closeConnection(int32_t sock1, int32_t sock2, const char *name) {
  dprintf(1, "Into the closeConnection function File:%s, Line:%d.\n", netsift::source, __LINE__);
  char lines[sizeof netsift::head + 40];
  snprintf(lines, sizeof lines, "%sContent-Length: 0\r\n\r\n", netsift::head);
  sendSocketLine(sock1, lines, netsift::sendSeconds);
  netsift::freeRequest();
  if (name != nullptr) unlink(name);
  shutdown(sock1, SHUT_RDWR);
  shutdown(sock2, SHUT_RDWR);
  dprintf(1, "Returning from closeConnection function.\n");
  return 0;
}
