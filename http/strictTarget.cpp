#include "http/strictTarget.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "http/listForm.h"
#include "http/strictField.h"
#include "http/strictForm.h"

namespace netsift {
namespace {

constexpr size_t longestMethod = 32; /* "UPDATEREDIRECTREF" is the longest that is registered */
constexpr size_t longestUrl = 500;

constexpr StrictFault none{0, ""};
constexpr StrictFault badLine{400, "The browser's request could not be understood: its first line is malformed."};
constexpr StrictFault longMethod{501, "The browser's request has a method that is not served."};
constexpr StrictFault badVersion{505, "The browser's request is of an HTTP version that is not served."};
constexpr StrictFault noHost{400, "The browser's request names no host."};
constexpr StrictFault severalHosts{400, "The browser's request names several hosts."};
constexpr StrictFault badHost{400, "The browser's request names a host that is malformed."};
constexpr StrictFault badPort{400, "The browser's request names a port outside 1 to 65535."};
constexpr StrictFault userInformation{400, "Addresses with a user name in them are not served."};

bool isTargetCharacter(char c) { return static_cast<unsigned char>(c) > ' ' && c != 0x7F; }

/* RFC 9112 section 2.3 */
bool isVersion(std::string_view text) {
  return text.size() == 8 && text.starts_with("HTTP/") && text[5] >= '0' && text[5] <= '9' && text[6] == '.' &&
         text[7] >= '0' && text[7] <= '9';
}

void toLower(std::string &text) {
  for (char &c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/* "host" or "host:port" (RFC 3986 section 3.2). The port stays 0 when none is named. */
StrictFault parseAuthority(std::string_view authority, std::string &host, unsigned &port) {
  if (authority.find('@') != std::string_view::npos) return userInformation;
  const size_t closing = authority.rfind(']');
  const size_t colon = authority.find(':', closing == std::string_view::npos ? 0 : closing);
  const std::string_view name = authority.substr(0, colon);
  if (colon != std::string_view::npos) {
    const std::string_view digits = authority.substr(colon + 1);
    if (digits.size() > 5) return badPort;
    for (const char digit : digits) {
      if (digit < '0' || digit > '9') return badPort;
      port = port * 10 + static_cast<unsigned>(digit - '0');
    }
    if (!digits.empty() && (port == 0 || port > 65535)) return badPort;
  }
  if (!readHostName(name, host)) return name.empty() ? noHost : badHost;
  return none;
}

/* The authority of an absolute target and, by reference, scheme and path; empty when the target has no "scheme://". */
std::string_view splitAbsolute(std::string_view target, StrictTarget &parsed) {
  const size_t mark = target.find("://");
  if (mark == std::string_view::npos) return {};
  const std::string_view scheme = target.substr(0, mark);
  if (!isToken(scheme)) return {};
  parsed.scheme = scheme;
  toLower(parsed.scheme);
  if (parsed.scheme == "https") parsed.usualPort = 443;
  const size_t start = mark + 3;
  const size_t end = std::min(target.find_first_of("/?#", start), target.size());
  parsed.path = target.substr(end, target.find('#', end) - end);
  return target.substr(start, end - start);
}

StrictFault readHostField(const HeaderLine *first, std::string_view &value, int &count) {
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Host:")) continue;
    value = fieldValue(line, "Host:");
    count++;
  }
  return count > 1 ? severalHosts : none;
}

/* Form, path and the target's own authority, empty when it names none. */
bool classify(std::string_view target, StrictTarget &parsed, std::string_view &authority) {
  parsed.usualPort = 80;
  parsed.scheme = "http";
  if (parsed.method == "CONNECT") {
    parsed.form = TargetForm::authority;
    parsed.usualPort = 443;
    authority = target;
    return target.find('/') == std::string_view::npos;
  }
  if (target == "*") {
    parsed.form = TargetForm::asterisk;
    parsed.path = target;
    return parsed.method == "OPTIONS";
  }
  if (target.front() == '/') {
    parsed.form = TargetForm::origin;
    parsed.path = target.substr(0, target.find('#'));
    return true;
  }
  parsed.form = TargetForm::absolute;
  authority = splitAbsolute(target, parsed);
  return !authority.empty();
}

std::string trimmedUrl(std::string url) {
  if (url.back() == '/') url.pop_back();
  if (url.size() > longestUrl) url.replace(longestUrl, url.npos, "...");
  return url;
}

/* A path that is empty is forwarded as "/". */
std::string wholePath(const StrictTarget &target) {
  const bool isEmpty = target.path.empty() || target.path.front() == '?';
  return isEmpty ? "/" + target.path : target.path;
}

}  // namespace

StrictFault parseRequestLine(std::string_view line, RequestLine &parts) {
  if (!line.ends_with("\r\n")) return badLine;
  line.remove_suffix(2);
  const size_t first = line.find(' ');
  const size_t last = line.rfind(' ');
  if (first == std::string_view::npos || first == last) return badLine;
  const std::string_view version = line.substr(last + 1);
  parts.method = line.substr(0, first);
  parts.target = line.substr(first + 1, last - first - 1);
  if (!isToken(parts.method) || parts.target.empty()) return badLine;
  if (!std::all_of(parts.target.begin(), parts.target.end(), isTargetCharacter)) return badLine;
  if (!isVersion(version)) return badLine;
  parts.minorVersion = static_cast<unsigned>(version[7] - '0');
  if (version[5] != '1') return badVersion;
  return parts.method.size() > longestMethod ? longMethod : none;
}

StrictFault parseStrictTarget(const HeaderLine *first, StrictTarget &target) {
  RequestLine line;
  StrictFault fault = parseRequestLine(first == nullptr || first->text == nullptr ? "" : first->text, line);
  if (fault.status != 0) return fault;
  target.method = line.method;
  target.minorVersion = line.minorVersion;
  std::string_view authority, field;
  if (!classify(line.target, target, authority)) return badLine;

  int hostFields = 0;
  fault = readHostField(first, field, hostFields);
  if (fault.status != 0) return fault;
  if (hostFields == 0 && line.minorVersion > 0) return noHost;
  fault = parseAuthority(authority.empty() ? field : authority, target.host, target.port);
  if (fault.status == 0 && !authority.empty() && !field.empty()) {
    std::string unusedHost;
    unsigned unusedPort = 0;
    fault = parseAuthority(field, unusedHost, unusedPort);
  }
  if (fault.status != 0) return fault;
  if (target.port == 0 && target.form == TargetForm::authority) return badPort; /* RFC 9110 section 9.3.6 */
  if (target.port == 0) target.port = target.usualPort;
  target.keepAlive = keepsConnection(first, line.minorVersion > 0);
  return none;
}

std::string strictUrl(const StrictTarget &target) {
  std::string whole = target.host;
  if (target.form != TargetForm::authority) whole += wholePath(target);
  return percentDecoded(trimmedUrl(whole));
}

std::vector<std::string> urlReadings(const StrictTarget &target) {
  if (target.form == TargetForm::authority) return {};
  const std::string whole = wholePath(target), asItCame = strictUrl(target);
  const size_t end = std::min(whole.find('?'), whole.size());
  const std::string query = percentDecoded(whole.substr(end));
  std::vector<std::string> urls = pathReadings(whole.substr(0, end));
  for (std::string &url : urls) {
    url.insert(0, target.host).append(query);
    url = trimmedUrl(std::move(url));
  }
  std::erase(urls, asItCame);
  return urls;
}

}  // namespace netsift

char *netsift_listForm(const char *address) {
  const std::string_view whole = address == nullptr ? "" : address;
  const size_t end = std::min(whole.find_first_of("/?#"), whole.size());
  netsift::StrictTarget target;
  target.form = netsift::TargetForm::absolute;
  target.path = whole.substr(end, whole.find('#', end) - end);
  if (netsift::parseAuthority(whole.substr(0, end), target.host, target.port).status != 0) return nullptr;
  return strdup(netsift::strictUrl(target).c_str());
}
