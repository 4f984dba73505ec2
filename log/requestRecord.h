/* What is known of the request being served, for the request log and whoever counts requests: filled by those who know,
   written once at the request's end. Internal to the library. */
#ifndef NETSIFT_LOG_REQUESTRECORD_H
#define NETSIFT_LOG_REQUESTRECORD_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "log/requestLog.h"
#include "state/connection.h"

namespace netsift {

struct FoundPhrase {
  std::string text;
  int32_t weight;
};

struct RequestRecord {
  bool isOpen = false;                      /* a request has begun */
  bool isMoved = false;                     /* its relay goes on in another process, which writes the record */
  bool viaProxy = false;                    /* the upstream is a proxy */
  bool unscanned = false, unjudged = false; /* delivered all the same */
  NetsiftRequestFigures figures{};
  int64_t began = 0;   /* microseconds since 1970 */
  int64_t started = 0; /* of the clock that never jumps */

  /* While the log is open alone. Null or empty: not known, or there is none. */
  std::string client, user, method, url, type, upstream, referer, agent, detail, signature, reference;
  std::vector<FoundPhrase> phrases;
  int32_t score = 0;
};

extern RequestRecord record;

extern int requestLogFile; /* -1: no log */

inline bool isLogged() { return requestLogFile >= 0; }
inline bool isRecorded() { return isLogged() || netsift_countRequest != nullptr; }

/* What the open log wants: URLs without their queries; who asks with what program, coming from where. */
bool cutsQuery();
bool logsBrowsers();

/* At the first byte of a request. */
void beginRecord();

/* Bytes that went to a peer, counted where that is the client. */
inline void noteSent(int fd, ssize_t count) {
  if (count > 0 && fd == clientsock) record.figures.bytes += static_cast<uint64_t>(count);
}

inline void noteOutcome(int32_t outcome) { record.figures.outcome = outcome; }
inline void noteStatus(int status) { record.figures.status = status; }
inline void noteCache(int32_t result) { record.figures.cache = result; }

/* Nobody has asked for anything after all. */
void dropRecord();

/* A block: its kind, the number of its category from 1 or 0, and what it was found in: the category's name, the port,
   the type. */
void noteBlock(int32_t blocked, int32_t category, std::string_view detail);

/* The time of the clock that never jumps in microseconds; 0 while nobody wants to know. */
int64_t timingStart();

/* An engine's verdict, as scans have it, on what it was asked about at `start`. */
void noteScan(int32_t verdict, int64_t start);

/* By which the record of a request is found: shown on its page, and made when that is filled. Eight letters and digits;
   empty while the log is closed. */
const std::string &requestReference();

/* At the end of a request: writes its line and has it counted; nothing when none has begun. */
void endRecord();

}  // namespace netsift

#endif
