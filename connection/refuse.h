/* A request or an answer refused: said in the logs, answered with a page, and the call ended. Internal to connection/.
 */
#ifndef NETSIFT_CONNECTION_REFUSE_H
#define NETSIFT_CONNECTION_REFUSE_H

#include <string>

#include "connection/cycle.h"
#include "log/requestLog.h"
#include "pages/reasons.h"

namespace netsift {

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
  int status = 0;                       /* StrictHttp: of the error page */
  int32_t result = callFailed;          /* of the call */
  int32_t blocked = NETSIFT_BLOCK_NONE; /* of the request's record; none: what that holds stays */
  int32_t category = 0;                 /* NETSIFT_BLOCK_LIST: its number, from 1 */
};

/* Says what was refused: reason, access record, result line. */
void announce(const Cycle &cycle, const Refusal &refusal);

/* Answers with the refusal's page, after which the interface's request is freed and null; the call ends. */
Next answer(Connection &connection, const Cycle &cycle, const Refusal &refusal);

/* Both. */
Next refuse(Connection &connection, const Cycle &cycle, const Refusal &refusal);

/* StrictHttp: the error page with a status and a sentence, null for what `reason` says, and a result line
   "STATUS:REFUSED,<status> <sentence>"; the call ends with -1. */
Next refuseWithError(Connection &connection, const Cycle &cycle, int status, const char *sentence);

}  // namespace netsift

#endif
