/* A request or an answer refused: said in the logs, answered with a page, and the call ended. Internal to connection/.
 */
#ifndef NETSIFT_CONNECTION_REFUSE_H
#define NETSIFT_CONNECTION_REFUSE_H

#include <string>

#include "connection/cycle.h"

namespace netsift {

/* Why a request or an answer is refused. */
enum class Why {
  proxyDown,
  noAnswer,
  port,
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

enum class Page {
  block, /* the block template */
  empty, /* a head alone */
  error, /* the error template */
};

struct Refusal {
  std::string reason{};       /* for the page; empty: what `reason` holds stays */
  bool isRecorded = false;    /* in the access log, as the kind's switch says */
  std::string kind{}, what{}; /* the record's last two fields */
  std::string line{};         /* the result line behind "STATUS:BLOCKED,"; empty: none */
  Page page = Page::block;
  int status = 0;              /* StrictHttp: of the error page */
  int32_t result = callFailed; /* of the call */
};

/* Says what was refused: reason, access record, result line. */
void announce(const Cycle &cycle, const Refusal &refusal);

/* Answers with the refusal's page, after which the interface's request is freed and null; the call ends. */
Next answer(Connection &connection, const Cycle &cycle, const Refusal &refusal);

/* Both. */
Next refuse(Connection &connection, const Cycle &cycle, const Refusal &refusal);

/* As blockConnection and sendError, the error page under the given status; without StrictHttp the status is 200
   whatever is given. `late`: a response has begun, whose body these bytes would be taken for: nothing is sent. */
void sendBlock(int32_t sock, bool withPage, bool late);
void sendErrorPage(int32_t sock, int status, bool late);

/* StrictHttp: the error page with a status and a sentence, null for what `reason` says, and a result line
   "STATUS:REFUSED,<status> <sentence>"; the call ends with -1. */
Next refuseWithError(Connection &connection, const Cycle &cycle, int status, const char *sentence);

}  // namespace netsift

#endif
