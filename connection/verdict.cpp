#include "connection/verdict.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cache/dbcache.h"
#include "cache/hostNotify.h"
#include "connection/judge.h"
#include "content/htmlToText.h"
#include "content/openMatch.h"
#include "content/phraseScan.h"
#include "content/phraseTable.h"
#include "content/ratings.h"
#include "http/httpBody_iter.h"
#include "log/accessLog.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "log/requestRecord.h"
#include "log/resultLine.h"
#include "pages/answer.h"
#include "pages/reasons.h"
#include "state/connection.h"
#include "state/observer.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/ownedText.h"

namespace netsift {
namespace {

constexpr int icraExceeded = 1, rsacExceeded = 2, safeSurfExceeded = 4;

const char *urlText() { return url == nullptr ? "" : url; }

void recordRating(const char *vocabulary) {
  noteBlock(NETSIFT_BLOCK_RATING, 0, vocabulary);
  setReason(reasonFor(Why::rating, vocabulary));
  if (lograting == 0) return;
  storeLog("Rating Violation", vocabulary, 0);
  logBlocked(url, std::string("Rating Violation:") + vocabulary);
}

/* An RSAC violation that is not logged goes on into the SafeSurf case: its reason ends as SafeSurf's. */
void nameRatingViolation(int violated) {
  if (violated == icraExceeded) recordRating("ICRA");
  if (violated == rsacExceeded) recordRating(lograting == 0 ? "SafeSurf" : "RSAC");
  if (violated == safeSurfExceeded) recordRating("SafeSurf");
}

bool violatesRatings(char *text) {
  const int violated = checkPICSRating(text);
  if (netsift_observer != nullptr) netsift_observer->rated(violated);
  if (violated == 0) return false;
  nameRatingViolation(violated);
  return true;
}

void storeOffensive() {
  if (strictHttp()) return; /* the cycle does, under a key that has the port */
  if (disableCache == 1 || dateAndTime1 == nullptr) return;
  if (addto_urlcache_db(url, dateAndTime1, 2) == 1) {
    dprintf(7, "URL Added in Cache.\n");
  } else {
    dprintf(7, "Error in Added URL in Cache.\n");
  }
}

/* What was counted, as far as that is kept, and the score. */
void notePhrases(int category) {
  const FoundPhrases *found = foundTable(category);
  for (int i = 0; found != nullptr && i < found->count; i++)
    record.phrases.push_back({found->phrases[i]->phrase, found->phrases[i]->weight});
  if (categweight != nullptr && category < phraseSlots()) record.score = categweight[category];
}

}  // namespace

void recordOffensive(int category) {
  const char *name = categname1 == nullptr || categname1[category - 1] == nullptr ? "" : categname1[category - 1];
  if (addurltolist != 0) {
    dprintf(4, "adding url to list\n");
    sendURLToParent(category - 1, urlText());
  }
  noteBlock(NETSIFT_BLOCK_PHRASES, category, name);
  if (isLogged()) notePhrases(category - 1);
  setReason(reasonFor(Why::offensive, name));
  if (logcontent != 0) storeLog(name, "Offensive Content", 0);
  logBlocked(url, std::string("Offensive Content:") + peerText(name));
  if (url != nullptr) storeOffensive();
}

namespace {

/* The text is normalised already and is the page's visible text afterwards. */
bool isOffensive(char *text) {
  int32_t length = static_cast<int32_t>(std::strlen(text));
  ConvertHTMLToText(text, &length);
  const int category = static_cast<uint8_t>(isOffensiveContent(text, static_cast<int>(std::strlen(text))));
  if (category == 0) return false;
  recordOffensive(category);
  return true;
}

bool isBlocked(char *text, bool first) {
  if (testforratings != 0 && first && violatesRatings(text)) return true;
  return contentcheck != 0 && isOffensive(text);
}

/* Without memory for the normalised text: the ratings of the chunk itself, its last byte masked for the while, and its
   phrases where at least a copy can be had. */
bool isBlockedAsItStands(char *buffer, int32_t length, bool first) {
  char none = '\0';
  if (length == 0) return isBlocked(&none, first);
  char &end = buffer[length - 1];
  const char masked = end;
  end = '\0';
  bool blocked = testforratings != 0 && first && violatesRatings(buffer);
  if (!blocked && contentcheck != 0) {
    const Text copy(strdup(buffer));
    if (!copy) dprintf(1, "memory allocation failed in checkAllRight\n");
    blocked = copy && isOffensive(copy.get());
  }
  end = masked;
  return blocked;
}

}  // namespace

bool isTextBlocked(char *buffer, int32_t length, bool first) {
  if (length < 0) return false;
  int normalisedLength = 0;
  const Text normalised(preProcessBody(buffer, length, &normalisedLength));
  return normalised ? isBlocked(normalised.get(), first) : isBlockedAsItStands(buffer, length, first);
}

bool isRatingBlocked(const char *buffer, int32_t length) {
  if (testforratings == 0) return false;
  int normalisedLength = 0;
  const Text normalised(preProcessBody(buffer, length, &normalisedLength));
  if (!normalised) std::abort();
  return violatesRatings(normalised.get());
}

}  // namespace netsift

int32_t checkAllRight(char *buffer, int32_t length, int32_t first) {
  if (!netsift::isTextBlocked(buffer, length, first != 0)) return 0;
  blockConnection(clientsock, 1);
  return -1;
}

int32_t isBlockedPort(int32_t port) {
  for (const int32_t blocked : blockedports) {
    if (blocked == 0) return 0;
    if (blocked == port) return 1;
  }
  return 0;
}
