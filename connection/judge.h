/* What is said of a response and stored, the same on both roads: its type, its text, viruses, what is not scanned, what
   the cache remembers, and what is put into a page. Reading, framing and release are the roads' own. Internal to
   connection/. */
#ifndef NETSIFT_CONNECTION_JUDGE_H
#define NETSIFT_CONNECTION_JUDGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "connection/cycle.h"
#include "state/results.h"

namespace netsift {

struct PageWords;

/* As the verdict cache stores them. */
constexpr int verdictClean = NETSIFT_CACHED_CLEAN, verdictInfected = NETSIFT_CACHED_INFECTED,
              verdictOffensive = NETSIFT_CACHED_OFFENSIVE;

/* Step: takes the modification date, unless the cache is off. */
Next readDate(Connection &connection, Cycle &cycle);

/* Refuses the response for a content type of `blockedcontent`, but not of a whitelisted site. */
Next checkContentType(Connection &connection, const Cycle &cycle);

/* The line that every response leaves that is not answered from the verdict cache, at level 7. */
void traceMiss(const Cycle &cycle);

/* -- what is not scanned -- */

/* Marks a response that a rule takes out of the scan; `virwhite_reason` says which. While the rule for hosts is on
   (VirWL_Domain), those for style sheets and content types are not asked. */
void applySkipRules(Cycle &cycle, bool skipsStyleSheets);

/* -- the verdict cache -- */

bool isNoCache();

/* A 200 of a URL without a query, not skipped and not marked "Pragma: no-cache", while the cache is on. */
bool mayConsultCache(const Cycle &cycle);

/* What a verdict is kept under: the URL, with the port where that is not 80 and the scheme where that is not http, as
   what one port of a server has is no verdict on another's. The contract's road reads no scheme: there it is the URL. */
std::string verdictKey(const Cycle &cycle);

/* What the cache says of the page in its present state: a verdict, or another number for none. */
int32_t knownVerdict(const Cycle &cycle);

/* Traces that none is known, and makes the response one whose verdict is stored. */
void noteUnknown(Cycle &cycle, const char *file, int line);

/* Refuses a page that is known to be infected or offensive. */
Next refuseKnown(Connection &connection, Cycle &cycle, int verdict);

/* Whether what is found is to be remembered. */
bool mayStore(const Cycle &cycle);

/* Stores a verdict for the page in its present state. False when nothing was stored, as for a page without a date. */
bool storeVerdict(const Cycle &cycle, int verdict);

/* Stores, traced with its place, that the page is clean. */
void storeClean(const Cycle &cycle, const char *file, int line);

/* -- a piece of the body -- */

/* Makes the phrase filter ready for a new body. */
void prepareContentFilter();

/* A page is not remembered as clean when what its body was read into opens windows. */
void noticePopups(Cycle &cycle, const char *buffer, size_t length);

/* All that checkAllRight does, but for the page: whether the chunk is to be blocked, with `reason`, records, result
   line and the stored verdict as it leaves them. */
bool isTextBlocked(char *buffer, int32_t length, bool first);

/* Whether the ratings of a page's start are to block it. */
bool isRatingBlocked(const char *buffer, int32_t length);

/* The records of a page that is blocked for its phrases in a category, from 1. */
void recordOffensive(int category);

/* Judges a piece of text; `first`: ratings are looked for in it too. True when the page was refused: the call is to end
   with -1. */
bool refuseOffensive(Connection &connection, const Cycle &cycle, char *piece, size_t length, bool first);

/* The same of a page whose words are judged: what stands in the window from `fresh` on is read on. `first`: ratings are
   looked for in the window. `isLast`: nothing follows; `mayWait`: what only an end here would condemn is left to what
   follows, and words.atEnd tells. */
bool refuseWords(Connection &connection, const Cycle &cycle, PageWords &words, std::span<char> window, size_t fresh,
                 bool first, bool isLast, bool mayWait);

/* -- the scan -- */

/* Refuses what the engines found something in, and stores the verdict: connection.alreadyCached tells. */
void refuseInfected(Connection &connection, const Cycle &cycle, const char *virusName);

/* What could not be scanned, by the engines' verdict: -1 when there was none to ask. */
void traceUnscanned(int32_t verdict);
void refuseUnscanned(Connection &connection, const Cycle &cycle, int32_t verdict);

/* -- release -- */

/* Sends to the client; false when it is gone. */
using Send = bool (*)(const Connection &connection, const char *bytes, size_t length);

/* Sends the pop-up script. */
bool sendScript(const Connection &connection, Send send);

/* Sends the bytes before `index`, the script and the rest, each by one call even where it is empty. */
bool sendWithScript(const Connection &connection, Send send, const char *bytes, size_t length, size_t index);

}  // namespace netsift

#endif
