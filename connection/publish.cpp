#include "connection/publish.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "state/connection.h"

namespace netsift {
namespace {

bool replaceText(char *&slot, const std::string &text) {
  std::free(slot);
  slot = strdup(text.c_str());
  return slot != nullptr;
}

}  // namespace

bool publishRequest(const Request &from) {
  const bool complete = replaceText(url, from.url) && replaceText(hostname, from.hostname);
  std::snprintf(request, sizeof request, "%s", from.method.c_str());
  return complete;
}

void publishAddress(const Request &from, hostent *reverse) {
  isipaddr = static_cast<uint8_t>(from.isAddress);
  reqhost = reverse;
}

void publishReverseName(const ReverseName &name) {
  replaceText(reshostname, name.host);
  replaceText(resurl, name.url);
}

void publishTrimmedHost(const Request &from) {
  const char *trimmed = from.hostname.c_str(); /* a look-up ends it with a NUL */
  if (hostname != nullptr && std::strcmp(hostname, trimmed) != 0) replaceText(hostname, trimmed);
}

void retractRequest() {
  std::free(url);
  std::free(hostname);
  url = hostname = nullptr;
}

void publishUpstream(Connection &connection, int fd) { connection.ends.upstream = proxysock = fd; }

void publishDate(const Cycle &cycle) { dateAndTime1 = cycle.date.get(); }

void retractCycle(const Cycle &cycle) {
  if (dateAndTime1 != nullptr && dateAndTime1 == cycle.date.get()) dateAndTime1 = nullptr;
}

}  // namespace netsift
