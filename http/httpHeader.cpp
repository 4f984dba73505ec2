#include "http/httpHeader.h"

#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "http/socket.h"
#include "http/socketLine.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "util/ownedText.h"

using netsift::Text;

namespace {

constexpr unsigned longestLine = 8192;

bool hasPrefix(const HeaderLine *line, const char *prefix) {
  return line->text != nullptr && strncasecmp(line->text, prefix, std::strlen(prefix)) == 0;
}

bool hasWord(const HeaderLine *line, const char *word) { return std::strstr(line->text, word) != nullptr; }

/* The first line from here on that starts with the prefix; a HeaderLine or a const one, as handed in. */
template <typename Line>
Line *findField(Line *line, const char *prefix) {
  while (line != nullptr && !hasPrefix(line, prefix)) line = line->next;
  return line;
}

const char *skipSpaces(const char *text) {
  while (*text == ' ') text++;
  return text;
}

bool isRequest(const HeaderLine *first, std::string_view word) {
  if (first == nullptr || first->text == nullptr) return false;
  return std::strncmp(skipSpaces(first->text), word.data(), word.size()) == 0;
}

/* A new copy of the field's value up to one of the stop characters. */
char *fieldValue(const HeaderLine *first, const char *prefix, const char *stops) {
  const HeaderLine *line = findField(first, prefix);
  if (line == nullptr) return nullptr;
  const char *value = skipSpaces(line->text + std::strlen(prefix));
  const auto length = static_cast<uint8_t>(std::strcspn(value, stops));
  return strndup(value, length);
}

int digitValue(char c) { return static_cast<signed char>(c) - '0'; }

/* Replaces what follows the line's first `kept` characters. Without memory to grow, the line stays as it was. */
void replaceTail(HeaderLine *line, size_t kept, std::string_view tail) {
  if (kept + tail.size() > std::strlen(line->text)) {
    auto *grown = static_cast<char *>(std::realloc(line->text, kept + tail.size() + 1));
    if (grown == nullptr) {
      dprintf(1, "system unable to allocate memmory"); /* so spelled: log filters match it */
      return;
    }
    line->text = grown;
  }
  std::memcpy(line->text + kept, tail.data(), tail.size());
  line->text[kept + tail.size()] = '\0';
}

void rewriteField(const char *operation, HeaderLine *first, const char *prefix, std::string_view text) {
  dprintf(6, "inside %s", operation);
  HeaderLine *line = findField(first, prefix);
  if (line != nullptr) replaceTail(line, 0, text);
  dprintf(6, "exiting %s", operation);
}

bool isHeadEnd(const char *text) { return text[0] == '\r' && text[1] == '\n'; }

void countLine(Header *header, size_t length) {
  header->totalBytes += static_cast<uint32_t>(length);
  header->lineCount++;
  dprintf(7, "header line %u: %zu bytes\n", header->lineCount, length);
}

/* What became of the rest of a head. */
enum class Rest { notTaken, cut, whole };

/* Appends the rest of the head after `last` when it has arrived whole, all with one take. */
Rest takeArrivedLines(int fd, Header *header, HeaderLine *last) {
  char window[longestLine];
  std::string_view rest(window, netsift::takeArrivedHead(fd, window, sizeof window));
  if (rest.empty()) return Rest::notTaken;
  while (!rest.empty()) {
    const size_t length = std::min(rest.find('\n'), rest.size() - 1) + 1;
    last->next = createHeaderLine();
    last = last->next;
    if (last != nullptr) last->text = static_cast<char *>(std::malloc(length + 1));
    if (last == nullptr || last->text == nullptr) return Rest::cut;
    std::memcpy(last->text, rest.data(), length);
    last->text[length] = '\0';
    countLine(header, length);
    rest.remove_prefix(length);
  }
  return isHeadEnd(last->text) ? Rest::whole : Rest::cut;
}

/* Reads lines into the list that starts at `line`. Returns 1 at the empty line. */
unsigned readLines(int fd, Header *header, HeaderLine *line, int limit) {
  while (line != nullptr) {
    unsigned length = longestLine;
    unsigned char status = 0;
    line->text = getSocketLine(fd, &length, &status, limit);
    if (status != 0) return 0;
    countLine(header, length);
    if (isHeadEnd(line->text)) return 1;
    /* The rest has usually come with the first line; that saves two calls a line. */
    const Rest rest = header->lineCount == 1 ? takeArrivedLines(fd, header, line) : Rest::notTaken;
    if (rest != Rest::notTaken) return rest == Rest::whole ? 1 : 0;
    line->next = createHeaderLine();
    line = line->next;
  }
  return 0;
}

/* Joins the lines and sends them; the bytes sent, 0 or less when there are none. */
ssize_t sendLines(int fd, const Header *header) {
  size_t size = 0;
  for (const HeaderLine *line = header->first; line != nullptr; line = line->next) {
    if (line->text != nullptr) size += std::strlen(line->text);
  }
  if (size == 0) return 0;

  const Text head(static_cast<char *>(std::malloc(size + 1)));
  if (!head) {
    dprintf(1, "system unable to allocate memory-");
    return 0;
  }
  char *end = head.get();
  for (const HeaderLine *line = header->first; line != nullptr; line = line->next) {
    if (line->text != nullptr) end = stpcpy(end, line->text);
  }
  const ssize_t sent = send(fd, head.get(), size, MSG_NOSIGNAL);
  netsift::noteSent(fd, sent);
  dprintf(7, "%zd of %zu bytes sent\n", sent, size);
  return sent;
}

}  // namespace

HeaderLine *createHeaderLine(void) {
  dprintf(6, "inside createHeaderLine");
  auto *line = static_cast<HeaderLine *>(std::calloc(1, sizeof(HeaderLine)));
  dprintf(6, "exiting createHeaderLine");
  return line;
}

void destroyHeaderLine(HeaderLine *line) {
  dprintf(6, "inside destroyHeaderLine");
  if (line != nullptr) std::free(line->text);
  std::free(line);
  dprintf(6, "exiting destroyHeaderLine");
}

unsigned getHeader(int fd, Header *header, int limit) {
  dprintf(6, "inside getHeader");
  *header = Header{createHeaderLine(), 0, 0};
  const unsigned complete = readLines(fd, header, header->first, limit);
  dprintf(6, "exiting getHeader");
  return complete;
}

int sendHeader(int fd, const Header *header) {
  dprintf(6, "inside-- sendHeader");
  const ssize_t sent = sendLines(fd, header);
  dprintf(6, "exiting sendHeader");
  return sent <= 0 ? 0 : static_cast<int>(sent);
}

void destroyHeader(Header *header) {
  dprintf(6, "inside destroyHeader");
  for (HeaderLine *line = header->first; line != nullptr;) {
    HeaderLine *next = line->next;
    destroyHeaderLine(line);
    line = next;
  }
  header->first = nullptr;
  dprintf(6, "exiting destroyHeader");
}

int isPOSTRequest(const HeaderLine *first) { return isRequest(first, "POST"); }
int isPROPPATCHRequest(const HeaderLine *first) { return isRequest(first, "PROPPATCH"); }
int isPROPFINDRequest(const HeaderLine *first) { return isRequest(first, "PROPFIND"); }
int isHEADRequest(const HeaderLine *first) { return isRequest(first, "HEAD"); }
int isCONNECTRequest(const HeaderLine *first) { return isRequest(first, "CONNECT"); }
int isAuthPresent(const HeaderLine *first) { return isRequest(first, "Proxy-Authorization"); }

int getResponseCode(const HeaderLine *first) {
  if (first == nullptr || first->text == nullptr) return -1;
  const char *version = skipSpaces(first->text);
  const char *space = std::strchr(version, ' ');
  if (space == nullptr || std::isdigit(static_cast<unsigned char>(space[1])) == 0) return -1;
  if (space[2] == '\0') return -1;
  return digitValue(space[1]) * 100 + digitValue(space[2]) * 10 + digitValue(space[3]);
}

char *getFieldValue(const HeaderLine *first, const char *prefix) { return fieldValue(first, prefix, " \r"); }
char *getFieldValue1(const HeaderLine *first, const char *prefix) { return fieldValue(first, prefix, "\r"); }
char *getHostName(const HeaderLine *first) { return getFieldValue(first, "Host:"); }
char *getTransferEncoding(const HeaderLine *first) { return getFieldValue(first, "Transfer-Encoding:"); }
char *getContentCoding(const HeaderLine *first) { return getFieldValue(first, "Content-Encoding:"); }
char *getAuthType(const HeaderLine *first) { return getFieldValue(first, "Proxy-Authorization:"); }
char *getContentType(const HeaderLine *first) { return fieldValue(first, "Content-Type:", " \r;"); }
char *isPragmaNoCache(const HeaderLine *first) { return getFieldValue1(first, "Pragma: no-cache"); }
char *getContentLength1(const HeaderLine *first) { return getFieldValue1(first, "Content-Length:0"); }

int getContentLength(const HeaderLine *first) {
  const Text value(getFieldValue1(first, "Content-Length:"));
  if (!value) return 0;
  uint32_t length = 0;
  for (const char *digit = value.get(); *digit != '\0'; digit++) {
    length = length * 10 + static_cast<uint32_t>(digitValue(*digit));
  }
  return static_cast<int>(length);
}

int ShowAuth(const HeaderLine *first) {
  constexpr std::string_view field = "Proxy-Authorization: "; /* the scheme stands right after it */
  const HeaderLine *line = findField(first, "Proxy-Authorization:");
  if (line == nullptr) {
    dprintf(6, "the authorization statement not present");
    return 0;
  }
  const bool longEnough = std::strlen(line->text) >= field.size();
  return longEnough && std::strncmp(line->text + field.size(), "NTLM", 4) == 0 ? 1 : 2;
}

int isconnectionclosed(const HeaderLine *first) {
  for (const HeaderLine *line = first; line != nullptr; line = line->next) {
    if (hasPrefix(line, "Connection:") && (hasWord(line, "close") || hasWord(line, "CLOSE"))) return 1;
    if (hasPrefix(line, "Proxy-Connection:") && hasWord(line, "close")) return 1;
  }
  return 0;
}

void modContentLength(HeaderLine *first, long length) {
  char text[48];
  std::snprintf(text, sizeof text, "Content-Length: %ld\r\n", length);
  rewriteField("modContentLength", first, "Content-Length:", text);
}

void modAccept(HeaderLine *first) { rewriteField("modAccept", first, "Accept:", "Accept: */*\r\n"); }

void modAcceptLanguage(HeaderLine *first) {
  rewriteField("modAcceptLanguage", first, "Accept-Language:", "Accept: en-us\r\n");
}

void removeContentCoding(HeaderLine *first) {
  rewriteField("removeContentCoding", first, "Content-Encoding:", "Content-Encoding: identity\r\n");
}

void removeAcceptCoding(HeaderLine *first) {
  rewriteField("removeAcceptCoding", first, "Accept-Encoding:", "Accept-Encoding: identity\r\n");
}

void removeTransferEncoding(HeaderLine *first) {
  rewriteField("removeTransferEncoding", first, "Transfer-Encoding:", "Transfer-Encoding: identity\r\n");
}

void modHTTPver(HeaderLine *first) {
  dprintf(6, "inside modHTTPver");
  for (HeaderLine *line = first; line != nullptr; line = line->next) {
    const char *version = line->text == nullptr ? nullptr : std::strstr(line->text, "HTTP/1.1");
    if (version == nullptr) continue;
    replaceTail(line, static_cast<size_t>(version - line->text), "HTTP/1.0\r\n");
    break;
  }
  dprintf(6, "exiting modHTTPver");
}

void removeContentLength(HeaderLine *first) {
  dprintf(6, "inside removeContentLength");
  for (HeaderLine *line = first; line != nullptr && line->next != nullptr; line = line->next) {
    HeaderLine *candidate = line->next;
    if (!hasPrefix(candidate, "Content-Length:")) continue;
    line->next = candidate->next;
    destroyHeaderLine(candidate);
    break;
  }
  dprintf(6, "exiting removeContentLength");
}

void removePersistent(HeaderLine *first) {
  dprintf(6, "inside removePersistent");
  for (HeaderLine *line = first; line != nullptr; line = line->next) {
    const bool connection = hasPrefix(line, "Connection:");
    if (!connection && !hasPrefix(line, "Proxy-Connection:")) continue;
    if (!hasWord(line, "keep-alive") && !hasWord(line, "Keep-Alive")) continue;
    replaceTail(line, 0, connection ? "Connection: Close\r\n" : "Proxy-Connection: Close\r\n");
  }
  dprintf(6, "exiting removePersistent");
}
