#include "http/requestUrl.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "http/httpHeader.h"
#include "log/debugLog.h"
#include "state/connection.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/ownedText.h"

using netsift::Text;

namespace {

constexpr size_t longestUrl = 500;
constexpr size_t hostLengthModulus = 256; /* the host's length is kept in 8 bits */
constexpr size_t schemeReach = 8;         /* "https://": a "/" further on belongs to a path */
constexpr std::string_view whiteSpace = " \t\n\v\f\r";
constexpr std::string_view modifiedField = "Last-Modified: ";

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool containsAnyCase(std::string_view text, std::string_view part) {
  const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

Text copyOf(std::string_view text) {
  Text copy(static_cast<char *>(std::malloc(text.size() + 1)));
  if (copy) {
    copy.get()[text.copy(copy.get(), text.size())] = '\0';
  } else {
    dprintf(1, "memory allocation failed for a part of a head\n");
  }
  return copy;
}

/* Moves the method into `request` and returns the target; empty when the line is not a request line. */
std::string_view takeTarget(std::string_view line) {
  const size_t methodLength = std::min(line.find_first_of(whiteSpace), line.size());
  if (methodLength >= sizeof request) return {};
  request[line.copy(request, methodLength)] = '\0';
  if (methodLength == line.size()) return {};

  line.remove_prefix(std::min(line.find_first_not_of(' ', methodLength), line.size()));
  size_t end = line.find(" HTTP");
  if (end == line.npos) end = line.find(" http");
  if (end == line.npos) return {};
  return line.substr(0, line.find_last_not_of(' ', end) + 1);
}

/* Folds what follows the ':' up to a "/" or a blank; it may be anything. */
unsigned foldPort(std::string_view text) {
  uint32_t port = 0;
  for (char c : text.substr(0, text.find_first_of("/ "))) port = port * 10 + static_cast<uint32_t>(c - '0');
  return port;
}

/* Host and path joined, without one "/" at the end, and capped. */
Text joinUrl(std::string_view host, std::string_view path) {
  constexpr std::string_view dots = "...";
  Text joined(static_cast<char *>(std::malloc(host.size() + path.size() + dots.size() + 1)));
  if (!joined) return joined;

  char *text = joined.get();
  size_t length = host.copy(text, host.size());
  length += path.copy(text + length, path.size());
  if (length > 0 && text[length - 1] == '/') length--;
  if (length > longestUrl) {
    dprintf(6, "as the lenth of the url is more than 500 so trimming it ");
    length = longestUrl + dots.copy(text + longestUrl, dots.size());
  }
  text[length] = '\0';
  return joined;
}

/* The parts of a target that getURL hands out; no host means no memory or no Host field. */
struct Location {
  Text host, url;
  unsigned port = 80;
};

Location fromAbsoluteForm(std::string_view target) {
  Location location;
  const size_t slash = target.substr(0, schemeReach).find('/');
  if (slash != target.npos) target.remove_prefix(std::min(slash + 2, target.size()));

  const size_t hostEnd = std::min(target.find_first_of(":/ "), target.size());
  const std::string_view host = target.substr(0, hostEnd % hostLengthModulus);
  std::string_view path = target.substr(hostEnd);
  if (!path.empty() && path.front() == ':') {
    location.port = foldPort(path.substr(1));
    path.remove_prefix(std::min(path.find_first_of("/ "), path.size()));
  }
  location.host = copyOf(host);
  location.url = joinUrl(host, path);
  return location;
}

Location fromOriginForm(std::string_view target, const HeaderLine *head) {
  Location location;
  location.host.reset(getHostName(head));
  if (!location.host) {
    dprintf(2, "No Host field in header");
    return location;
  }
  if (char *colon = std::strchr(location.host.get(), ':')) {
    location.port = foldPort(colon + 1);
    *colon = '\0';
  }
  target.remove_suffix(1);
  location.url = joinUrl(location.host.get(), target);
  return location;
}

}  // namespace

char *getURL(const HeaderLine *line, unsigned *port, char **host) {
  std::string_view target;
  if (line != nullptr && line->text != nullptr) target = takeTarget(line->text);
  if (target.empty()) {
    dprintf(2, "invalid Request Header");
    return nullptr;
  }
  Location location = target.front() == '/' ? fromOriginForm(target, line) : fromAbsoluteForm(target);
  if (!location.host || !location.url) return nullptr;
  *port = location.port;
  *host = location.host.release();
  return location.url.release();
}

char *decodeURL(const char *text) {
  if (text == nullptr) return nullptr;
  char *decoded = static_cast<char *>(std::malloc(std::strlen(text) + 1));
  if (decoded == nullptr) {
    dprintf(1, "memory allocation failed in decodeURL\n");
    return nullptr;
  }

  char *out = decoded;
  while (*text != '\0') {
    if (*text == '%' && isHex(text[1]) && isHex(text[2])) {
      *out++ = hexToChar(static_cast<char>(std::tolower(text[1])), static_cast<char>(std::tolower(text[2])));
      text += 3;
    } else {
      *out++ = *text++;
    }
  }
  *out = '\0';
  return decoded;
}

int isHex(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }

signed char hexToChar(char high, char low) {
  auto value = [](char c) { return c >= '0' && c <= '9' ? c - '0' : c - 87; }; /* 'a' is 97 */
  return static_cast<signed char>(value(high) * 16 + value(low));
}

int isAnIP(const char *host) {
  if (host == nullptr || *host == '\0') return 0;
  const char last = host[std::strlen(host) - 1];
  return last >= '0' && last <= '9';
}

int isBannedContentType(const char *type) {
  if (type == nullptr) return 0;
  const std::string_view value(type);
  for (const auto &entry : blockedcontent) {
    const std::string_view banned(entry, strnlen(entry, sizeof entry));
    if (banned.empty()) return 0;
    const bool listed = netsift::strictHttp() ? containsAnyCase(value, banned) : value.find(banned) != value.npos;
    if (!listed) continue;
    std::snprintf(reason, sizeof reason, "access to content type %.*s blocked", static_cast<int>(banned.size()),
                  banned.data());
    return 1;
  }
  return 0;
}

char *getModificationTime(const HeaderLine *line) {
  for (; line != nullptr; line = line->next) {
    if (line->text == nullptr || strncasecmp(line->text, modifiedField.data(), modifiedField.size()) != 0) continue;
    std::string_view value(line->text + modifiedField.size());
    value.remove_suffix(std::min<size_t>(2, value.size())); /* CR LF */
    Text copy = copyOf(value);
    return copy ? copy.release() : strdup("ERROR");
  }
  return nullptr;
}

char *lTrim(char *text) {
  if (text == nullptr) return nullptr;
  while (isSpace(*text)) text++;
  return text;
}

char *rTrim(char *text) {
  if (text == nullptr) return nullptr;
  size_t length = std::strlen(text);
  while (length > 0 && isSpace(text[length - 1])) length--;
  text[length] = '\0';
  return text;
}

char *Trim(char *text) { return lTrim(rTrim(text)); }
