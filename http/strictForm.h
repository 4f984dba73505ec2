/* The forms that one address is written in, and what servers make of them. Pure functions. Internal to the library. */
#ifndef NETSIFT_HTTP_STRICTFORM_H
#define NETSIFT_HTTP_STRICTFORM_H

#include <string>
#include <string_view>
#include <vector>

namespace netsift {

/* Percent-encoding undone once. "%00" stays: a text ends at what it stands for. */
std::string percentDecoded(std::string_view text);

/* A host as it stands in an authority, without port, in the one form that is looked up, connected to and forwarded:
   lower-cased, without the last ".", percent-encoding undone; IPv4 addresses dotted, whatever numbers a resolver takes
   for one (inet_aton); IPv6 in its brackets as inet_ntop(3) writes it, one that stands for IPv4 as that; a name in Unicode
   as its A-labels (RFC 5891, UTS 46). False: no host, or one that ends in a number and is no address, which readers
   make different ones of. */
bool readHostName(std::string_view name, std::string &host);

/* What servers may take a path for, without its query; "/", or "*", begins it. Beside decoding it and resolving "." and
   "..", which all of these have, one may drop ";parameters" before or after it decodes, resolve before, decode twice,
   take "\" for "/", and merge slashes. Each once; a path in which nothing of that occurs has one. */
std::vector<std::string> pathReadings(std::string_view path);

}  // namespace netsift

#endif
