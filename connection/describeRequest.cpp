#include "connection/describeRequest.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "http/strictField.h"
#include "log/requestRecord.h"
#include "state/connection.h"
#include "state/settings.h"
#include "state/strict.h"

namespace netsift {
namespace {

constexpr unsigned httpsPort = 443;
constexpr int proxyUnauthorized = 407;

/* RFC 4648 section 4, up to the first character that is none of its alphabet. */
std::string base64Decoded(std::string_view text) {
  constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string decoded;
  unsigned bits = 0, count = 0;
  for (const char c : text) {
    const size_t value = alphabet.find(c);
    if (value == alphabet.npos) break;
    bits = (bits << 6 | static_cast<unsigned>(value)) & 0xFFFFF;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    decoded += static_cast<char>(bits >> count & 0xFF);
  }
  return decoded;
}

/* The name that the client gives the upstream proxy. */
std::string userOf(std::string_view credentials) {
  const size_t space = credentials.find(' ');
  if (space == credentials.npos || !equalsIgnoringCase(credentials.substr(0, space), "Basic")) return "";
  const std::string login = base64Decoded(credentials.substr(space + 1));
  return login.substr(0, login.find(':'));
}

std::string authority(const std::string &host, unsigned port) { return host + ":" + std::to_string(port); }

std::string strictRequestUrl(const StrictTarget &target) {
  if (target.form == TargetForm::authority) return authority(target.host, target.port);
  const std::string host = target.port == target.usualPort ? target.host : authority(target.host, target.port);
  return target.scheme + "://" + host + (target.path.starts_with('/') ? "" : "/") + target.path;
}

/* The contract's road keeps neither scheme nor port in its URL. */
std::string requestUrl(const Cycle &cycle) {
  const Request &request = cycle.request;
  if (strictHttp() && !cycle.target.host.empty()) return strictRequestUrl(cycle.target);
  if (request.isConnect) return authority(request.hostname, request.port == 0 ? httpsPort : request.port);
  return request.url.empty() ? "" : "http://" + request.url;
}

void describeUpstream(const Cycle &cycle) {
  const bool wasAsked = strictHttp() ? cycle.usesUpstream : cycle.responseCode != 0 || cycle.request.isConnect;
  if (!wasAsked) return;
  record.viaProxy = ProxyPresent == 1;
  if (record.viaProxy && proxyip == nullptr) return;
  const unsigned port = strictHttp() ? cycle.target.port : cycle.request.port == 0 ? 80 : cycle.request.port;
  record.upstream =
      record.viaProxy ? authority(proxyip, static_cast<unsigned>(proxyport)) : authority(cycle.request.hostname, port);
}

/* A block of the contract's road may come before the code was read. */
int statusOf(const Cycle &cycle) {
  const bool isRead = cycle.responseCode != 0 || respheader.first == nullptr;
  return isRead ? cycle.responseCode : getResponseCode(respheader.first);
}

}  // namespace

void noteRequestHead() {
  if (!isLogged()) return;
  for (const HeaderLine *line = reqheader.first; line != nullptr && line->text != nullptr; line = line->next) {
    if (isField(line, "Proxy-Authorization:") && ProxyPresent == 1)
      record.user = userOf(fieldValue(line, "Proxy-Authorization:"));
    if (!logsBrowsers()) continue;
    if (isField(line, "Referer:")) record.referer = fieldValue(line, "Referer:");
    if (isField(line, "User-Agent:")) record.agent = fieldValue(line, "User-Agent:");
  }
}

void describeRequest(const Cycle &cycle) {
  if (!isRecorded()) return;
  const int status = statusOf(cycle);
  const bool isAnswered = record.figures.status != 0 || record.figures.bytes == 0;
  if (!isAnswered) noteStatus(status);
  if (!isLogged()) return;
  record.method = cycle.request.method;
  record.url = requestUrl(cycle);
  if (cutsQuery()) record.url.resize(std::min(record.url.find('?'), record.url.size()));
  describeUpstream(cycle);
  const bool isPage =
      record.figures.outcome == NETSIFT_REQUEST_BLOCKED || record.figures.outcome == NETSIFT_REQUEST_ERROR;
  if (isPage) requestReference();
  record.type = isPage ? "text/html" : printable(cycle.contentType.get());
  if (status == proxyUnauthorized) record.user.clear(); /* nobody has checked the name */
}

}  // namespace netsift
