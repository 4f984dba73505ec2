#include "connection/requestPolicy.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "connection/answer.h"
#include "connection/hostEntry.h"
#include "connection/verdict.h"
#include "http/requestUrl.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/urlList.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

/* A plain prefix comparison up to the pattern's "*", or of all its 16 characters; "*" alone matches every host. */
bool matchesPattern(const IpPattern &node, const char *host) {
  const size_t size = strnlen(node.pattern, sizeof node.pattern);
  const void *star = std::memchr(node.pattern, '*', size);
  const size_t compared =
      star == nullptr ? sizeof node.pattern : static_cast<size_t>(static_cast<const char *>(star) - node.pattern);
  return std::strncmp(host, node.pattern, compared) == 0;
}

bool matchesAny(const IpPattern *patterns, const char *host) {
  for (const IpPattern *node = patterns; node != nullptr; node = node->next) {
    if (matchesPattern(*node, host)) return true;
  }
  return false;
}

/* The URL as the reverse-resolved host would have it. The URL begins with the host, unless decoding shortened it. */
char *urlOnHost(const char *newHost) {
  const size_t hostLength = std::strlen(hostname);
  const size_t urlLength = std::strlen(url);
  const char *rest = url + (hostLength < urlLength ? hostLength : urlLength);
  char *joined = nullptr;
  return asprintf(&joined, "%s%s", newHost, rest) < 0 ? nullptr : joined;
}

void lookUpReverse() {
  static HostEntry reverse;
  in_addr address;
  if (inet_aton(hostname, &address) == 0) return;
  reqhost = copyHostEntry(reverse, gethostbyaddr(&address, sizeof address, AF_INET));
  if (reqhost == nullptr || *reqhost->h_name == '\0') {
    reqhost = nullptr;
    return;
  }
  replaceText(reshostname, strdup(reqhost->h_name));
  replaceText(resurl, reshostname == nullptr ? nullptr : urlOnHost(reshostname));
  dprintf(4, "resolved host is [%s]\n", peerText(reshostname));
  dprintf(4, "resolved url is [%s]\n", peerText(resurl));
}

bool hasReverseName() { return isipaddr != 0 && reqhost != nullptr && reshostname != nullptr && resurl != nullptr; }

/* One list's answer for the request, or for the name that the host's address resolves to. */
template <typename InList>
int listed(InList inList) {
  int answer = static_cast<uint8_t>(inList(url, hostname, isipaddr));
  if (hasReverseName()) answer |= static_cast<uint8_t>(inList(resurl, reshostname, 0));
  return answer;
}

/* The list's answer for the URL as servers may read it, where that differs: what blocks is looked for in either, and
   what exempts must be found in both. */
template <typename InList>
int listedResolved(const Cycle &cycle, InList inList) {
  const std::string &resolved = cycle.resolvedUrl;
  if (resolved.empty()) return 0;
  int answer = static_cast<uint8_t>(inList(resolved.c_str(), hostname, isipaddr));
  if (!hasReverseName()) return answer;
  const std::string named = reshostname + resolved.substr(std::min(std::strlen(hostname), resolved.size()));
  answer |= static_cast<uint8_t>(inList(named.c_str(), reshostname, 0));
  return answer;
}

template <typename InList>
bool exempts(const Cycle &cycle, InList inList) {
  return listed(inList) != 0 && (cycle.resolvedUrl.empty() || listedResolved(cycle, inList) != 0);
}

/* Two different category numbers combine bit by bit, possibly to one that no category has: the first then names it. */
const char *categoryName(int category) {
  if (category > numcategories) category = static_cast<uint8_t>(inBlackLists(url, hostname, isipaddr));
  if (category < 1 || category > numcategories || categname == nullptr) return "";
  return printable(categname[category - 1]);
}

}  // namespace

Next applyIpPatterns(Connection &, Cycle &) {
  dprintf(6, "whiteclientipinurl1 is %d\n", whiteclientipinurl1);
  /* The settings themselves change and stay changed for the connection's later requests. */
  if (blockip != 0 && matchesAny(WhiteIP1, hostname)) {
    blockip = 0;
    urlcheck = 0;
  }
  if (ALLOWALLIP == 1 && matchesAny(BLACKIPINURL, hostname)) {
    blockip = 1;
    urlcheck = 0;
  }
  return Next::step;
}

Next checkPort(Connection &connection, Cycle &cycle) {
  const int32_t port = static_cast<int32_t>(cycle.port);
  if (block_ports == 0 || isBlockedPort(port) == 0) return Next::step;
  char text[16];
  snprintf(text, sizeof text, "%d", port);
  snprintf(reason, sizeof reason, "access to port:%d not allowed", port);
  if (logport != 0) storeLog("Port Blocked", text, 0);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,Port Blocked:%s\n", clientip, peerText(url), text);
  blockConnection(clientsock, 1);
  return endCall(connection, 1);
}

Next checkIpHost(Connection &connection, Cycle &) {
  if (*url == '\0') {
    dprintf(2, "NULL url\n");
    return endCall(connection, -1);
  }
  reqhost = nullptr;
  const bool isBracketed = isStrict() && *hostname == '['; /* an IPv6 address */
  isipaddr = static_cast<uint8_t>(isBracketed ? 1 : isAnIP(hostname));
  if (isipaddr != 1) return Next::step;
  if (blockip == 0) {
    lookUpReverse();
    return Next::step;
  }
  snprintf(reason, sizeof reason, "access to IP based URLS not allowed");
  if (logip != 0) storeLog("IP Blocking", hostname, 0);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,IP Blocking:access to ip based url is blocked\n", clientip,
          peerText(url));
  blockConnection(clientsock, 1);
  return endCall(connection, 1);
}

Next consultLists(Connection &, Cycle &cycle) {
  cycle.isAdServer = blockad == 1 && (listed(inADList) | listedResolved(cycle, inADList)) != 0;
  cycle.isWhite = enable_whitelist == 1 && exempts(cycle, inWhiteList);
  dprintf(7, "in whitelist: %d\n", cycle.isWhite);
  cycle.isPopupSite = blockpopup == 1 && exempts(cycle, inPOPUPList);
  return Next::step;
}

Next checkAdServer(Connection &connection, Cycle &cycle) {
  if (!cycle.isAdServer || cycle.isWhite) return Next::step;
  snprintf(reason, sizeof reason, "URL in the list of adservers");
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER\n", clientip, peerText(url));
  blockConnection(clientsock, 0);
  return endCall(connection, 1);
}

Next checkBlackLists(Connection &connection, Cycle &cycle) {
  if (urlcheck != 1 || cycle.isWhite) return Next::step;
  int category = listed(inBlackLists);
  if (category == 0) category = listedResolved(cycle, inBlackLists);
  if (category == 0) return Next::step;
  const char *name = categoryName(category);
  /* Two blanks before "in", and below the category as the record's first text: administrators' filters know both. */
  snprintf(reason, sizeof reason, "Black Listed URL  in category %s", name);
  if (logurl != 0) storeLog(name, "BlackListed", 0);
  dprintf(1, "Client IP:%s,URL:%s,STATUS:BLOCKED,BlackListed:%s\n", clientip, peerText(url), peerText(name));
  blockConnection(clientsock, 1);
  return endCall(connection, -1); /* of the blocks this one alone answers -1 */
}

}  // namespace netsift
