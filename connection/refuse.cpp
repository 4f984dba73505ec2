#include "connection/refuse.h"

#include "log/accessLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "pages/answerPage.h"
#include "state/connection.h"
#include "state/observer.h"

namespace netsift {
namespace {

constexpr int usualStatus = 503; /* of an error page that names none */

void tellObserver(const Refusal &refusal) {
  if (netsift_observer == nullptr) return;
  const int error = refusal.status != 0 ? refusal.status : usualStatus;
  netsift_observer->refused(refusal.page == Page::error ? error : refusal.page == Page::empty ? -1 : 0);
}

/* Of a list the category is the record's first text. */
void noteRefusal(const Refusal &refusal) {
  noteOutcome(refusal.page == Page::error ? NETSIFT_REQUEST_ERROR : NETSIFT_REQUEST_BLOCKED);
  if (refusal.blocked == NETSIFT_BLOCK_NONE) return;
  noteBlock(refusal.blocked, refusal.category, refusal.blocked == NETSIFT_BLOCK_LIST ? refusal.kind : refusal.what);
}

}  // namespace

void announce(const Cycle &cycle, const Refusal &refusal) {
  if (!refusal.reason.empty()) setReason(refusal.reason);
  if (refusal.isRecorded) storeLog(refusal.kind.c_str(), refusal.what.c_str(), 0);
  if (!refusal.line.empty()) logBlocked(cycle.request.url.c_str(), refusal.line);
}

Next answer(Connection &connection, const Cycle &cycle, const Refusal &refusal) {
  tellObserver(refusal);
  noteRefusal(refusal);
  switch (refusal.page) {
    case Page::error:
      sendErrorPage(connection.ends.client, refusal.status, cycle.responseBegun);
      break;
    case Page::block:
    case Page::empty:
      sendBlock(connection.ends.client, refusal.page == Page::block, cycle.responseBegun);
      break;
  }
  return endCall(connection, refusal.result);
}

Next refuse(Connection &connection, const Cycle &cycle, const Refusal &refusal) {
  announce(cycle, refusal);
  return answer(connection, cycle, refusal);
}

Next refuseWithError(Connection &connection, const Cycle &cycle, int status, const char *sentence) {
  if (sentence != nullptr) setReason(sentence);
  logOutcome(cycle.request.url.c_str(), "REFUSED", std::to_string(status) + " " + peerText(reason));
  return answer(connection, cycle, {.page = Page::error, .status = status});
}

}  // namespace netsift
