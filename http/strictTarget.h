/* What a request addresses, read as RFC 9112 section 3 and RFC 9110 section 7 say. Pure functions over a head that was
   read; asked when StrictHttp is 1. */
#ifndef NETSIFT_HTTP_STRICTTARGET_H
#define NETSIFT_HTTP_STRICTTARGET_H

#include <string>
#include <string_view>
#include <vector>

#include "http/strictParse.h"
#include "state/records.h"

namespace netsift {

/* RFC 9112 section 3.2. */
enum class TargetForm { origin, absolute, authority, asterisk };

struct StrictTarget {
  std::string method;
  TargetForm form = TargetForm::origin;
  std::string scheme;     /* lower-cased; "http" when the target names none */
  std::string host;       /* as readHostName has it */
  unsigned port = 0;      /* 1 to 65535: the target's, else the Host field's, else 443 for CONNECT and https, else 80 */
  unsigned usualPort = 0; /* what `port` would be had none been named */
  std::string path;       /* path and query as they came; may be empty, or begin with "?" */
  bool keepAlive = false; /* the client keeps its connection after this request (RFC 9112 section 9.3) */
  unsigned minorVersion = 0; /* the digit after "HTTP/1.", as received; from 1 on the request is served as HTTP/1.1 */
};

struct RequestLine {
  std::string_view method, target;
  unsigned minorVersion = 0;
};

/* Splits a request line, its CR LF included: 400 when malformed or without a version, 505 when the version's first
   digit is not 1. The parts point into the line. */
StrictFault parseRequestLine(std::string_view line, RequestLine &parts);

/* Reads request line and Host field of a head into `target`, a new one. Every fault but 505 is a 400: a malformed
   target, host or port, user information, several Host fields, none in HTTP/1.1, or none anywhere that names a host. A
   Host field beside a target that names its own host must be well-formed, and is not used. */
StrictFault parseStrictTarget(const HeaderLine *first, StrictTarget &target);

/* The normalised URL: host and path, which is "/" where a query follows the host, one trailing "/" dropped, cut to 500
   characters and "..." when longer, then percent-decoded but for "%00", which stays as it is written. */
std::string strictUrl(const StrictTarget &target);

/* The URL as servers may read it, where that differs: decoded first and resolved in each way of pathReadings, then
   trimmed and cut. It is forwarded as it came (RFC 9110 section 7.7). Mostly there is none. */
std::vector<std::string> urlReadings(const StrictTarget &target);

}  // namespace netsift

#endif
