#include "pages/answer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/socket.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "pages/answerPage.h"
#include "pages/htmlTemplate.h"
#include "state/connection.h"
#include "state/strict.h"
#include "util/installPath.h"

namespace netsift {
namespace {

constexpr int sendSeconds = 10;
constexpr char source[] = "answer.cpp";

constexpr int blockedStatus = 403;
constexpr size_t headRoom = 200;

struct StatusText {
  int status;
  const char *text;
};
constexpr StatusText statusTexts[] = {
    {200, "OK"},
    {400, "Bad Request"},
    {403, "Forbidden"},
    {411, "Length Required"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {417, "Expectation Failed"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
    {508, "Loop Detected"},
};

const char *statusText(int status) {
  for (const StatusText &known : statusTexts) {
    if (known.status == status) return known.text;
  }
  return "Error";
}

/* A 200 would be the begin of a tunnel. */
int blockStatus() {
  const bool asWanted = (StrictHttp & STRICT_BLOCK_WITH_200) != 0 && std::strcmp(request, "CONNECT") != 0;
  return asWanted ? 200 : blockedStatus;
}

/* The three lines that every answer begins with, then its own, in one send. Without StrictHttp every answer is a 200,
   so that the browser shows the filter's page and not one of its own. */
void sendAnswerHead(int32_t sock, int status, const char *ownLines) {
  char lines[headRoom];
  const bool strict = strictHttp();
  noteStatus(strict ? status : 200);
  std::snprintf(lines, sizeof lines, "HTTP/1.1 %d %s\r\nContent-Type: text/html\r\nPragma: no-cache\r\n%s%s",
                strict ? status : 200, strict ? statusText(status) : "OK", strict ? "Connection: close\r\n" : "",
                ownLines);
  sendSocketLine(sock, lines, sendSeconds);
}

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

/* To the connection's client, wherever the head went; not to one that asked for the head alone. */
void sendPage(const Text &page) {
  const size_t length = std::strlen(page.get());
  if (length == 0 || (strictHttp() && std::strcmp(request, "HEAD") == 0)) return;
  sendHTTPBody(clientsock, page.get(), static_cast<int>(length), sendSeconds);
}

void sendBlockPage(int32_t sock) {
  const bool isMessenger = url != nullptr && std::strstr(url, "/Messenger.") != nullptr;
  const Text page = filledTemplate(isMessenger ? "template" : "template.htm");
  char length[40];
  std::snprintf(length, sizeof length, "Content-Length: %zu\r\n\r\n", page ? std::strlen(page.get()) : 0);
  sendAnswerHead(sock, blockStatus(), length);
  if (!page) {
    dprintf(1, "error in reading template file\n");
    return;
  }
  dprintf(4, "sending html template file.\n");
  sendPage(page);
}

/* Without StrictHttp no blank line ends this head. */
void sendEmptyBlock(int32_t sock) {
  sendAnswerHead(sock, blockStatus(), strictHttp() ? "Content-Length: 0\r\n\r\n" : "Content-Length: 0\r\n");
}

void sendFilledError(int32_t sock, int status) {
  sendAnswerHead(sock, status, "\r\n");
  const Text page = filledTemplate("errortemplate.htm");
  if (!page) {
    dprintf(1, "error in reading template file\n");
    return;
  }
  dprintf(4, "sending html template file \n");
  sendPage(page);
}

}  // namespace

void sendBlock(int32_t sock, bool withPage, bool late) {
  dprintf(1, "Into the block connection function File:%s, Line:%d.\n", source, __LINE__);
  if (!late && withPage) sendBlockPage(sock);
  if (!late && !withPage) sendEmptyBlock(sock);
  freeRequest();
  dprintf(1, "Returning from blockConnection function.\n");
}

void sendErrorPage(int32_t sock, int status, bool late) {
  dprintf(2, "into the send error template funtion\n"); /* spelled so in log filters */
  if (!late) sendFilledError(sock, status);
  freeRequest();
}

}  // namespace netsift

int32_t blockConnection(int32_t sock, uint8_t withpage) {
  netsift::sendBlock(sock, withpage != 0, false);
  return 0;
}

void sendError(int32_t sock) { netsift::sendErrorPage(sock, netsift::blockedStatus, false); }

int32_t closeConnection(int32_t sock1, int32_t sock2, const char *name) {
  dprintf(1, "Into the closeConnection function File:%s, Line:%d.\n", netsift::source, __LINE__);
  netsift::sendAnswerHead(sock1, 200, "Content-Length: 0\r\n\r\n");
  netsift::freeRequest();
  if (name != nullptr) unlink(name);
  shutdown(sock1, SHUT_RDWR);
  shutdown(sock2, SHUT_RDWR);
  dprintf(1, "Returning from closeConnection function.\n");
  return 0;
}
