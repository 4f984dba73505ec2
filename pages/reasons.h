/* Why a request or an answer is refused, in words: what `%r` shows on a page. Internal to the library. */
#ifndef NETSIFT_PAGES_REASONS_H
#define NETSIFT_PAGES_REASONS_H

#include <string>

namespace netsift {

enum class Why {
  proxyDown,
  noAnswer,
  port,
  connectPort,
  localAddress,
  address,
  adServer,
  blacklisted,
  upload,
  contentType,
  rating,
  offensive,
  knownOffensive,
  infected,
  noEngine,
  scanFailed,
};

/* The reason with its detail (a port, a category, a type) where it has one: in the contract's words, which pages and
   filters know, or under StrictHttp in a sentence for whoever sees the page. */
std::string reasonFor(Why why, const std::string &detail = "");

/* The sentence under StrictHttp; else nothing, for what the operation that found it has put into `reason` itself. */
std::string sentenceFor(Why why, const std::string &detail = "");

/* Puts a text into `reason`, cut to what that holds. */
void setReason(const std::string &text);

}  // namespace netsift

#endif
