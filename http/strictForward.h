/* What is forwarded under StrictHttp: heads without what was meant for one hop only (RFC 9110 section 7.6), requests
   addressed to whom they go (RFC 9112 section 3.2). An empty head stays empty in all of these. */
#ifndef NETSIFT_HTTP_STRICTFORWARD_H
#define NETSIFT_HTTP_STRICTFORWARD_H

#include <cstdint>
#include <string>

#include "http/strictTarget.h"
#include "state/records.h"

namespace netsift {

/* Addresses the request to the origin itself, with the target in origin form, or to the proxy upstream, in absolute
   form (the authority for CONNECT). One Host field names the target's host, and a Content-Length stands once. Gone are
   the hop-by-hop fields and those that Connection names, but for what frames or describes the content; Expect, which is
   answered here; Trailer where nothing is chunked, else the one Transfer-Encoding says so anew; and towards an origin Proxy-Authorization. The "Connection" field of
   this hop says whether the upstream is to keep the connection: not when it `closes`. The request line keeps its version
   where that is 1.0 or 1.1. */
void rewriteForOrigin(Header &header, const StrictTarget &target, bool closes);
void rewriteForProxy(Header &header, const StrictTarget &target, bool closes);

/* Adds this filter's Via, "1.<minorVersion> netsift", behind those of earlier hops. `minorVersion` is the one that the
   message was received in. Not repeatable: a head that goes out twice gets it once. */
void addVia(Header &header, unsigned minorVersion);

/* How many of the hops that the head's Via fields list were filters of this name. */
int countHops(const HeaderLine *first);

/* Takes out of a response's head the hop-by-hop fields and those that Connection names, as above, and
   Transfer-Encoding; Content-Length after 1xx and 204, else repeated ones are made one. The proxy's challenge
   (Proxy-Authenticate) stays when the response came from the upstream proxy; an origin has none to make. Not for a 101,
   whose Upgrade the client needs. Framing and connection are to be set afterwards. */
void cleanResponseHead(Header &header, bool fromProxy);

/* The media type that the Content-Type fields give, lower-cased and without parameters; empty when there is none. False
   when fields or list elements give different ones. */
bool readMediaType(const HeaderLine *first, std::string &type);

/* The charset that the type comes with, as it stands; "" when it names none. */
std::string readCharset(const HeaderLine *first);

/* Says that the body goes out in chunks, with what `Trailer` announces behind
   them; or otherwise, and then nothing is announced. */
void setFraming(Header &header, bool chunked);

/* Whether a head names "websocket" as what its sender goes on in. */
bool acceptsWebSocket(const HeaderLine *first);

/* Whether its sender offers it to this hop: an Upgrade that Connection does not list is what an earlier one forgot to
   take out (RFC 9110 section 7.8). */
bool asksForWebSocket(const HeaderLine *first);

/* Offers it to the next hop. */
void offerWebSocket(Header &header);

/* Sets the one "Connection: close" or "Connection: keep-alive" of the next hop. */
void setConnection(Header &header, bool close);

/* Sets the one Content-Length field, in the place of the first one where there is one. */
void setContentLength(Header &header, uint64_t length);

void removeContentLengthFields(Header &header);

}  // namespace netsift

#endif
