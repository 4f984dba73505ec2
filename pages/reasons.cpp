#include "pages/reasons.h"

#include <cstdio>

#include "state/connection.h"
#include "state/strict.h"

namespace netsift {
namespace {

/* What stands before the detail and behind it; null: the detail is left out. */
struct Wording {
  const char *before, *behind;
};

struct Reason {
  Why why;
  Wording contract, strict;
};

constexpr Reason reasons[] = {
    {Why::proxyDown, {"Proxy Server Not Running", nullptr}, {"The upstream proxy cannot be reached: ", "."}},
    {Why::noAnswer, {"Timeout while getting response from server.\n", ""}, {"The server did not answer in time.", ""}},
    {Why::port, {"access to port:", " not allowed"}, {"Connections to port ", " are not allowed."}},
    {Why::connectPort, {"", ""}, {"Encrypted connections to port ", " are not allowed."}},
    {Why::localAddress, {"", ""}, {"The address leads to the filter itself or its own network.", ""}},
    {Why::address,
     {"access to IP based URLS not allowed", ""},
     {"Sites may not be called by their address in numbers, only by name.", ""}},
    {Why::adServer, {"URL in the list of adservers", ""}, {"The address is on the list of advertisers.", ""}},
    /* Two blanks before "in": administrators' filters know them. */
    {Why::blacklisted,
     {"Black Listed URL  in category ", ""},
     {"The address is on the list of the category \"", "\"."}},
    {Why::upload, {"Attachments are not allowed to this server", ""}, {"Files may not be sent to this site.", ""}},
    {Why::contentType, {"access to content type ", " blocked"}, {"Files of the type ", " are not allowed."}},
    {Why::rating, {"", " rating violated"}, {"The page's own rating (", ") is beyond what is allowed."}},
    {Why::offensive,
     {"Offensive content found on the site in category ", ""},
     {"The page's text fits the category \"", "\"."}},
    {Why::knownOffensive, {"", nullptr}, {"The page was found offensive before and has not changed since.", ""}},
    {Why::infected, {"Content is infected\n", nullptr}, {"A virus was found in the file", "."}},
    {Why::noEngine,
     {"Anti Virus Server Not Running\n", ""},
     {"The virus scanner gives no answer, and nothing is let through unscanned.", ""}},
    {Why::scanFailed,
     {"Error In Scanning For Virus\n", ""},
     {"The file could not be scanned for viruses, and nothing is let through unscanned.", ""}},
};

const Reason *find(Why why) {
  for (const Reason &reason : reasons) {
    if (reason.why == why) return &reason;
  }
  return nullptr;
}

}  // namespace

std::string reasonFor(Why why, const std::string &detail) {
  const Reason *reason = find(why);
  if (reason == nullptr) return detail;
  const Wording &wording = strictHttp() ? reason->strict : reason->contract;
  return wording.behind == nullptr ? wording.before : wording.before + detail + wording.behind;
}

std::string sentenceFor(Why why, const std::string &detail) {
  return strictHttp() ? reasonFor(why, detail) : std::string();
}

void setReason(const std::string &text) { std::snprintf(reason, sizeof reason, "%s", text.c_str()); }

}  // namespace netsift
