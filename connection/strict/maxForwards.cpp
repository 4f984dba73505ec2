#include "connection/strict/maxForwards.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/strict/requestBody.h"
#include "http/strictField.h"
#include "http/strictWire.h"
#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "state/connection.h"

namespace netsift {
namespace {

constexpr std::string_view fieldName = "Max-Forwards:";
constexpr size_t mostDigits = 9;

/* Null where there is none that is a number. */
HeaderLine *findMaxForwards() {
  HeaderLine *line = reqheader.first->next;
  while (line != nullptr && !isField(line, fieldName)) line = line->next;
  if (line == nullptr) return nullptr;
  const std::string_view value = fieldValue(line, fieldName);
  const bool isNumber = !value.empty() && value.size() <= mostDigits &&
                        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
  return isNumber ? line : nullptr;
}

/* The head as it came, but for what its sender is known by. */
std::string traced() {
  std::string head;
  for (const HeaderLine *line = reqheader.first; line != nullptr; line = line->next) {
    constexpr std::string_view secret[] = {"Authorization:", "Proxy-Authorization:", "Cookie:"};
    const auto isNamed = [line](std::string_view name) { return isField(line, name); };
    if (std::none_of(std::begin(secret), std::end(secret), isNamed)) head += line->text;
  }
  return head;
}

Next answerHere(Connection &connection, bool isTrace) {
  const std::string body = isTrace ? traced() : "";
  const std::string field =
      isTrace ? "Content-Type: message/http" : "Allow: GET, HEAD, POST, PUT, DELETE, OPTIONS, TRACE, CONNECT";
  const std::string answer = "HTTP/1.1 200 OK\r\n" + field +
                             "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                             body;
  dprintf(4, "answered here: no further forwards\n");
  noteStatus(200);
  const bool sent = sendWhole(connection.ends.client, answer, clientTimeoutSeconds);
  retractRequest();
  return endCall(connection, sent ? callEnded : callFailed);
}

}  // namespace

Next checkMaxForwards(Connection &connection, Cycle &cycle) {
  const bool isTrace = cycle.target.method == "TRACE";
  if (isTrace && hasBody(cycle)) return refuseWithError(connection, cycle, 400, "A TRACE has no body.");
  HeaderLine *line = isTrace || cycle.target.method == "OPTIONS" ? findMaxForwards() : nullptr;
  if (line == nullptr) return Next::step;
  const int left = std::stoi(std::string(fieldValue(line, fieldName)));
  if (left == 0) return answerHere(connection, isTrace);
  setLine(line, "Max-Forwards: " + std::to_string(left - 1));
  return Next::step;
}

}  // namespace netsift
