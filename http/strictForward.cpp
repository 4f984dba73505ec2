#include "http/strictForward.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "http/strictField.h"
#include "http/strictFraming.h"

namespace netsift {
namespace {

/* RFC 9110 section 7.6.1 */
constexpr std::string_view hopByHop[] = {"Connection:", "Keep-Alive:", "Proxy-Connection:", "TE:", "Upgrade:"};

/* The names that Connection fields list, each with its colon. */
std::string connectionOptions(const Header &header) {
  std::string options;
  for (const HeaderLine *line = header.first->next; line != nullptr; line = line->next) {
    if (isField(line, "Connection:")) options.append(fieldValue(line, "Connection:")).append(",");
  }
  return options;
}

/* Fields without which the message would mean something else, or not what was judged, stay whatever Connection says. */
bool isRemovable(std::string_view name) {
  for (const std::string_view kept : {"Host", "Content-Length", "Transfer-Encoding", "Content-Type", "Content-Encoding",
                                      "Content-Range", "Cache-Control"}) {
    if (equalsIgnoringCase(name, kept)) return false;
  }
  return isToken(name);
}

void removeHopByHop(Header &header) {
  const std::string options = connectionOptions(header);
  for (std::string_view rest = options; !rest.empty();) {
    const std::string name(takeElement(rest));
    if (isRemovable(name)) removeField(header, name + ":");
  }
  for (const std::string_view field : hopByHop) removeField(header, field);
}

void unifyContentLength(Header &header) {
  uint64_t length = 0;
  if (readContentLength(header.first, length) == Lengths::given) setContentLength(header, length);
}

std::string authority(const StrictTarget &target) {
  const bool namesPort = target.form == TargetForm::authority || target.port != target.usualPort;
  return namesPort ? target.host + ":" + std::to_string(target.port) : target.host;
}

std::string originForm(const StrictTarget &target) {
  if (target.form == TargetForm::asterisk) return "*";
  if (target.path.empty()) return target.method == "OPTIONS" ? "*" : "/";
  return target.path.front() == '?' ? "/" + target.path : target.path;
}

std::string absoluteForm(const StrictTarget &target) {
  if (target.form == TargetForm::authority) return authority(target);
  const std::string path = originForm(target);
  return target.scheme + "://" + authority(target) + (path == "*" ? "" : path);
}

bool hasField(const Header &header, std::string_view nameWithColon) {
  const HeaderLine *line = header.first->next;
  while (line != nullptr && !isField(line, nameWithColon)) line = line->next;
  return line != nullptr;
}

void rewriteRequest(Header &header, const StrictTarget &target, const std::string &address, bool closes) {
  const bool http11 = std::strstr(header.first->text, " HTTP/1.1") != nullptr;
  setLine(header.first, target.method + " " + address + (http11 ? " HTTP/1.1" : " HTTP/1.0"));
  removeHopByHop(header);
  if (hasField(header, "Transfer-Encoding:")) {
    setFraming(header, true); /* in the letters and blanks that everybody reads */
  } else {
    removeField(header, "Trailer:");
  }
  removeField(header, "Expect:");
  removeField(header, "Host:");
  unifyContentLength(header);
  setConnection(header, closes);
  insertField(header, "Host: " + authority(target));
}

bool isEmpty(const Header &header) { return header.first == nullptr || header.first->text == nullptr; }

}  // namespace

void rewriteForOrigin(Header &header, const StrictTarget &target, bool closes) {
  if (isEmpty(header)) return;
  StrictTarget plain = target;
  plain.usualPort = 80; /* an origin form names no scheme: it is read as http */
  rewriteRequest(header, plain, originForm(plain), closes);
  removeField(header, "Proxy-Authorization:");
}

void rewriteForProxy(Header &header, const StrictTarget &target, bool closes) {
  if (!isEmpty(header)) rewriteRequest(header, target, absoluteForm(target), closes);
}

void addVia(Header &header, unsigned minorVersion) {
  if (isEmpty(header)) return;
  HeaderLine *before = header.first;
  for (HeaderLine *line = header.first->next; line != nullptr; line = line->next) {
    if (isField(line, "Via:")) before = line;
  }
  Header rest{before, 0, 0};
  insertField(rest, "Via: 1." + std::to_string(minorVersion) + " netsift");
}

void cleanResponseHead(Header &header, bool fromProxy) {
  if (isEmpty(header)) return;
  StatusLine line;
  parseStatusLine(header.first->text, line);
  removeHopByHop(header);
  removeField(header, "Transfer-Encoding:");
  if (line.status < 200 || line.status == 204) {
    removeContentLengthFields(header);
  } else {
    unifyContentLength(header);
  }
  if (fromProxy) return;
  removeField(header, "Proxy-Authenticate:");
  removeField(header, "Proxy-Authentication-Info:");
}

void setFraming(Header &header, bool chunked) {
  removeField(header, "Transfer-Encoding:");
  if (!chunked) return removeField(header, "Trailer:");
  removeContentLengthFields(header);
  insertField(header, "Transfer-Encoding: chunked");
}

bool acceptsWebSocket(const HeaderLine *first) {
  bool accepts = false;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (isField(line, "Upgrade:")) accepts |= hasListToken(fieldValue(line, "Upgrade:"), "websocket");
  }
  return accepts;
}

bool asksForWebSocket(const HeaderLine *first) {
  bool isOption = false;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (isField(line, "Connection:")) isOption |= hasListToken(fieldValue(line, "Connection:"), "upgrade");
  }
  return isOption && acceptsWebSocket(first);
}

void offerWebSocket(Header &header) {
  removeField(header, "Connection:");
  insertField(header, "Upgrade: websocket");
  insertField(header, "Connection: Upgrade");
}

void setConnection(Header &header, bool close) {
  removeField(header, "Connection:");
  removeField(header, "Proxy-Connection:");
  insertField(header, close ? "Connection: close" : "Connection: keep-alive");
}

void setContentLength(Header &header, uint64_t length) {
  if (isEmpty(header)) return;
  const std::string field = "Content-Length: " + std::to_string(length);
  HeaderLine *line = header.first->next;
  while (line != nullptr && !isField(line, "Content-Length:")) line = line->next;
  if (line == nullptr) return insertField(header, field);
  setLine(line, field);
  Header rest{line, 0, 0};
  removeField(rest, "Content-Length:");
}

void removeContentLengthFields(Header &header) { removeField(header, "Content-Length:"); }

int countHops(const HeaderLine *first) {
  int hops = 0;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Via:")) continue;
    for (std::string_view list = fieldValue(line, "Via:"); !list.empty();) {
      if (takeElement(list).ends_with(" netsift")) hops++;
    }
  }
  return hops;
}

/* A comma inside a quoted parameter looks like a second type too: such an answer is refused rather than guessed at. */
bool readMediaType(const HeaderLine *first, std::string &type) {
  bool given = false;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Content-Type:")) continue;
    for (std::string_view list = fieldValue(line, "Content-Type:"); !list.empty();) {
      const std::string_view value = takeElement(list);
      std::string found(value.substr(0, value.find_first_of("; \t")));
      for (char &c : found) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
      if (given && found != type) return false;
      type = found;
      given = true;
    }
  }
  return true;
}

namespace {

/* Takes a parameter of a media type, behind its ";", with the quotes of its value undone (RFC 9110 section 5.6.6). */
void takeParameter(std::string_view &rest, std::string &name, std::string &value) {
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t;"), rest.size()));
  const size_t end = std::min(rest.find_first_of("=;"), rest.size());
  name = rest.substr(0, end);
  value.clear();
  rest.remove_prefix(end);
  if (!rest.starts_with('=')) return;
  rest.remove_prefix(1);
  if (rest.starts_with('"')) {
    for (rest.remove_prefix(1); !rest.empty() && rest.front() != '"'; rest.remove_prefix(1)) {
      if (rest.front() == '\\' && rest.size() > 1) rest.remove_prefix(1);
      value += rest.front();
    }
  } else {
    value = rest.substr(0, rest.find_first_of("; \t"));
  }
  rest.remove_prefix(std::min(rest.find(';'), rest.size()));
}

/* The first one that a type has counts. */
std::string charsetOfType(std::string_view type) {
  type.remove_prefix(std::min(type.find(';'), type.size()));
  std::string name, value;
  while (!type.empty()) {
    takeParameter(type, name, value);
    if (equalsIgnoringCase(name, "charset")) return value;
  }
  return "";
}

}  // namespace

/* Of several types the last one that has any, as browsers have it. */
std::string readCharset(const HeaderLine *first) {
  std::string charset;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Content-Type:")) continue;
    for (std::string_view list = fieldValue(line, "Content-Type:"); !list.empty();) {
      if (std::string found = charsetOfType(takeElement(list)); !found.empty()) charset = std::move(found);
    }
  }
  return charset;
}

}  // namespace netsift
