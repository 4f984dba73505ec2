#include "connection/requestPolicy.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "connection/publish.h"
#include "connection/refuse.h"
#include "connection/verdict.h"
#include "http/requestUrl.h"
#include "http/siteAddresses.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "policy/attachFile.h"
#include "policy/urlList.h"
#include "scan/tunnel.h"
#include "state/connection.h"
#include "state/observer.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/hostEntry.h"

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

bool isMessengerUrl(const char *url) {
  for (char(&fragment)[100] : tunnellist) {
    size_t length = strnlen(fragment, sizeof fragment - 1);
    while (length > 0 && fragment[length - 1] == ' ') length--;
    fragment[length] = '\0';
    if (length == 0) return false;
    if (std::strstr(url, fragment) != nullptr) return true;
  }
  return false;
}

/* The URL as the reverse-resolved host would have it. The URL begins with the host, unless decoding shortened it. */
std::string urlOnHost(const std::string &name, const std::string &url, const Request &request) {
  return name + url.substr(std::min(request.hostname.size(), url.size()));
}

/* The resolver's answer, which may take it seconds; with StrictHttp it is asked once for what a connection asks for in
   a row. */
hostent *entryOf(Connection &connection, const Request &request, const SocketAddress &address) {
  static HostEntry reverse;
  if (strictHttp() && connection.resolvedAddress == request.hostname) return connection.resolvedEntry;
  connection.resolvedAddress = request.hostname;
  const void *bare = &address.four.sin_addr;
  if (isSix(address)) bare = &address.six.sin6_addr;
  const socklen_t size = isSix(address) ? sizeof(in6_addr) : sizeof(in_addr);
  return connection.resolvedEntry = copyHostEntry(reverse, gethostbyaddr(bare, size, address.any.sa_family));
}

/* An IPv6 address is one with StrictHttp alone. */
bool readAddress(const std::string &host, SocketAddress *address) {
  in_addr four;
  const bool isFour = inet_aton(host.c_str(), &four) != 0;
  if (isFour) *address = fourAddress(four, 0);
  return isFour || (strictHttp() && literalAddress(host, address));
}

/* The entry that `reqhost` becomes; null when the address has no name. */
hostent *lookUpReverse(Connection &connection, const Request &request) {
  SocketAddress address;
  if (!readAddress(request.hostname, &address)) return nullptr;
  ReverseName &name = connection.reverse;
  hostent *found = entryOf(connection, request, address);
  if (found == nullptr || *found->h_name == '\0') return nullptr;
  name.host = found->h_name;
  name.url = urlOnHost(name.host, request.url, request);
  publishReverseName(name);
  dprintf(4, "resolved host is [%s]\n", peerText(name.host.c_str()));
  dprintf(4, "resolved url is [%s]\n", peerText(name.url.c_str()));
  return found;
}

const char *listName(int (*inList)(const char *, char *, int)) {
  if (inList == inADList) return "adserver";
  return inList == inWhiteList ? "whitelist" : "popup";
}

const char *listName(signed char (*)(const char *, char *, int)) { return "blacklists"; }

template <typename InList>
int lookUp(InList inList, const char *url, char *host, bool isAddress) {
  const int answer = static_cast<uint8_t>(inList(url, host, isAddress ? 1 : 0));
  if (netsift_observer != nullptr) netsift_observer->asked(listName(inList), url, host, isAddress ? 1 : 0, answer);
  return answer;
}

/* One list's answer for a form of the URL or, where `name` is not null, for what that name makes of it. */
template <typename InList>
int listedAs(const std::string &url, Request &request, ReverseName *name, const std::string &namedUrl, InList inList) {
  int answer = lookUp(inList, url.c_str(), request.hostname.data(), request.isAddress);
  if (name != nullptr) answer |= lookUp(inList, namedUrl.c_str(), name->host.data(), false);
  return answer;
}

template <typename InList>
int listed(Request &request, ReverseName *name, InList inList) {
  return listedAs(request.url, request, name, name == nullptr ? "" : name->url, inList);
}

/* The list's answer for a URL that servers may read the request's as. */
template <typename InList>
int listedReading(const std::string &url, Request &request, ReverseName *name, InList inList) {
  return listedAs(url, request, name, name == nullptr ? "" : urlOnHost(name->host, url, request), inList);
}

/* What blocks is looked for in every form of the URL: the first answer that some form has. */
template <typename InList>
int blocks(Request &request, ReverseName *name, InList inList) {
  int answer = listed(request, name, inList);
  for (const std::string &url : request.readings) {
    if (answer == 0) answer = listedReading(url, request, name, inList);
  }
  return answer;
}

/* What exempts must be found in all of them. */
template <typename InList>
bool exempts(Request &request, ReverseName *name, InList inList) {
  return listed(request, name, inList) != 0 && std::ranges::all_of(request.readings, [&](const std::string &url) {
           return listedReading(url, request, name, inList) != 0;
         });
}

ReverseName *nameFound(Connection &connection) {
  return connection.reverse.host.empty() ? nullptr : &connection.reverse;
}

/* Two different category numbers combine bit by bit, possibly to one that no category has: the first then names it. */
const char *categoryName(int category, Request &request) {
  if (category > numcategories) {
    category =
        static_cast<uint8_t>(inBlackLists(request.url.c_str(), request.hostname.data(), request.isAddress ? 1 : 0));
  }
  if (category < 1 || category > numcategories || categname == nullptr) return "";
  return printable(categname[category - 1]);
}

}  // namespace

void traceRequestHead() {
  dprintf(5, "-------------------start of reqheader------------------------------\n");
  traceHeadLines(reqheader);
  dprintf(5, "-------------------end of reqheader------------------------------\n");
}

void traceHost(const Request &request) {
  dprintf(1, "The hostname id is [ %s ]\n", peerText(request.hostname.c_str()));
}

void tracePassed(const Request &request) {
  dprintf(4, "URL is [%s], port is [%u], host is [%s]\n", peerText(request.url.c_str()), request.port,
          peerText(request.hostname.c_str()));
}

bool isMessenger(const Request &request) {
  if (tunnelmessengers == 0 || !isMessengerUrl(request.url.c_str())) return false;
  return std::ranges::all_of(request.readings, [](const std::string &url) { return isMessengerUrl(url.c_str()); });
}

Next relayMessenger(Connection &connection) {
  const Ends &ends = connection.ends;
  noteOutcome(NETSIFT_REQUEST_RELAYED);
  if (logtunnel != 0) {
    tunnellog(ends.client, ends.upstream, noTimeout);
  } else {
    tunnel(ends.client, ends.upstream, noTimeout);
  }
  return endCall(connection, callEnded);
}

bool checksUploads(const Request &request) {
  if (blockupload == 0) return false;
  const auto takesNone = [](const std::string &url) { return checkUrl(url.c_str()) == 0; };
  return takesNone(request.url) || std::ranges::any_of(request.readings, takesNone);
}

Next applyIpPatterns(Connection &, Cycle &cycle) {
  const char *host = cycle.request.hostname.c_str();
  dprintf(6, "whiteclientipinurl1 is %d\n", whiteclientipinurl1);
  /* The settings themselves change and stay changed for the connection's later requests. */
  if (blockip != 0 && matchesAny(WhiteIP1, host)) {
    blockip = 0;
    urlcheck = 0;
  }
  if (ALLOWALLIP == 1 && matchesAny(BLACKIPINURL, host)) {
    blockip = 1;
    urlcheck = 0;
  }
  return Next::step;
}

Next checkPort(Connection &connection, Cycle &cycle) {
  const int32_t port = static_cast<int32_t>(cycle.request.port);
  return block_ports == 0 || isBlockedPort(port) == 0 ? Next::step : refusePort(connection, cycle, Why::port);
}

Next refusePort(Connection &connection, const Cycle &cycle, Why why) {
  const std::string text = std::to_string(cycle.request.port);
  return refuse(connection, cycle,
                {.reason = reasonFor(why, text),
                 .isRecorded = logport != 0,
                 .kind = "Port Blocked",
                 .what = text,
                 .line = "Port Blocked:" + text,
                 .result = callEnded,
                 .blocked = NETSIFT_BLOCK_PORT});
}

Next checkIpHost(Connection &connection, Cycle &cycle) {
  Request &request = cycle.request;
  if (request.url.empty()) {
    dprintf(2, "NULL url\n");
    return endCall(connection, callFailed);
  }
  hostent *reverse = request.isAddress && blockip == 0 ? lookUpReverse(connection, request) : nullptr;
  publishAddress(request, reverse);
  if (!request.isAddress || blockip == 0) return Next::step;
  return refuse(connection, cycle,
                {.reason = reasonFor(Why::address),
                 .isRecorded = logip != 0,
                 .kind = "IP Blocking",
                 .what = request.hostname,
                 .line = "IP Blocking:access to ip based url is blocked",
                 .result = callEnded,
                 .blocked = NETSIFT_BLOCK_ADDRESS});
}

Next consultLists(Connection &connection, Cycle &cycle) {
  Request &request = cycle.request;
  ReverseName *name = request.isAddress ? nameFound(connection) : nullptr;
  cycle.isAdServer = blockad == 1 && blocks(request, name, inADList) != 0;
  cycle.isWhite = enable_whitelist == 1 && exempts(request, name, inWhiteList);
  if (enable_whitelist == 1) dprintf(7, "in whitelist: %d\n", cycle.isWhite);
  cycle.isPopupSite = blockpopup == 1 && exempts(request, name, inPOPUPList);
  publishTrimmedHost(request);
  return Next::step;
}

Next checkAdServer(Connection &connection, Cycle &cycle) {
  if (!cycle.isAdServer || cycle.isWhite) return Next::step;
  return refuse(connection, cycle,
                {.reason = reasonFor(Why::adServer),
                 .line = "BLOCKED SERVER:ADSERVER",
                 .page = Page::empty,
                 .result = callEnded,
                 .blocked = NETSIFT_BLOCK_ADS});
}

Next checkBlackLists(Connection &connection, Cycle &cycle) {
  if (urlcheck != 1 || cycle.isWhite) return Next::step;
  ReverseName *name = nameFound(connection); /* an earlier request's too, where the road keeps it */
  const int category = blocks(cycle.request, name, inBlackLists);
  publishTrimmedHost(cycle.request);
  if (category == 0) return Next::step;
  const char *categoryText = categoryName(category, cycle.request);
  /* The category as the record's first text: administrators' filters know it there. */
  return refuse(connection, cycle,
                {.reason = reasonFor(Why::blacklisted, categoryText),
                 .isRecorded = logurl != 0,
                 .kind = categoryText,
                 .what = "BlackListed",
                 .line = std::string("BlackListed:") + peerText(categoryText),
                 .result = callFailed, /* of the blocks this one alone answers -1 */
                 .blocked = NETSIFT_BLOCK_LIST,
                 .category = category});
}

}  // namespace netsift
