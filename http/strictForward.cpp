#include "http/strictForward.h"

#include <cstring>
#include <string>
#include <string_view>

#include "http/strictField.h"

namespace netsift {
namespace {

/* RFC 9110 section 7.6.1, and the fields that only a proxy reads (section 11.7). */
constexpr std::string_view hopByHop[] = {"Connection:", "Keep-Alive:", "Proxy-Connection:",   "Proxy-Authorization:",
                                         "TE:",         "Trailer:",    "Proxy-Authenticate:", "Upgrade:"};

/* The names that Connection fields list, each with its colon. */
std::string connectionOptions(const Header &header) {
  std::string options;
  for (const HeaderLine *line = header.first->next; line != nullptr; line = line->next) {
    if (isField(line, "Connection:")) options.append(fieldValue(line, "Connection:")).append(",");
  }
  return options;
}

/* Fields without which the message would mean something else stay, whatever Connection says. */
bool isRemovable(std::string_view name) {
  for (const std::string_view kept : {"host", "content-length", "transfer-encoding"}) {
    if (hasListToken(name, kept)) return false;
  }
  return !name.empty();
}

void removeConnectionOptions(Header &header) {
  const std::string options = connectionOptions(header);
  for (std::string_view rest = options; !rest.empty();) {
    const size_t comma = rest.find(',');
    std::string name(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    std::erase_if(name, [](char c) { return c == ' ' || c == '\t'; });
    if (isRemovable(name)) removeField(header, name + ":");
  }
}

std::string originForm(const StrictTarget &target) {
  if (target.form == TargetForm::asterisk) return "*";
  if (target.path.empty()) return target.method == "OPTIONS" ? "*" : "/";
  return target.path.front() == '?' ? "/" + target.path : target.path;
}

}  // namespace

void rewriteForOrigin(Header &header, const StrictTarget &target) {
  if (header.first == nullptr || header.first->text == nullptr) return;
  const char *version = std::strstr(header.first->text, " HTTP/1.1") != nullptr ? " HTTP/1.1" : " HTTP/1.0";
  setLine(header.first, target.method + " " + originForm(target) + version);

  removeConnectionOptions(header);
  for (const std::string_view field : hopByHop) removeField(header, field);
  removeField(header, "Host:");
  insertField(header, target.keepAlive ? "Connection: keep-alive" : "Connection: close");
  const bool namesPort = target.port != target.usualPort;
  insertField(header, "Host: " + target.host + (namesPort ? ":" + std::to_string(target.port) : ""));
}

}  // namespace netsift
