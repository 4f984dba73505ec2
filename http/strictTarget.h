/* What a request addresses, read as RFC 9112 section 3 and RFC 9110 section 7 say. Pure functions over a head that was
   read; asked when StrictHttp is 1. */
#ifndef NETSIFT_HTTP_STRICTTARGET_H
#define NETSIFT_HTTP_STRICTTARGET_H

#include <string>

#include "state/records.h"

namespace netsift {

/* RFC 9112 section 3.2. */
enum class TargetForm { origin, absolute, authority, asterisk };

struct StrictTarget {
  std::string method;
  TargetForm form = TargetForm::origin;
  std::string host;       /* lower-cased, without port and trailing dot; an IPv6 address keeps its brackets */
  unsigned port = 0;      /* 1 to 65535: the target's, else the Host field's, else 443 for CONNECT and https, else 80 */
  unsigned usualPort = 0; /* what `port` would be had none been named */
  std::string path;       /* path and query as they came; may be empty, or begin with "?" */
  bool keepAlive = false; /* the client keeps its connection after this request (RFC 9112 section 9.3) */
};

/* Why a request is refused: the status code that says so, and a sentence for the error page. Status 0: it is not. */
struct StrictFault {
  int status;
  const char *text;
};

/* Reads method, target and Host field of a request head into `target`. */
StrictFault parseStrictTarget(const HeaderLine *first, StrictTarget &target);

/* The normalised URL: host and path, one trailing "/" dropped, cut to 500 characters and "..." when longer, then
   percent-decoded but for "%00", which stays as it is written. */
std::string strictUrl(const StrictTarget &target);

}  // namespace netsift

#endif
