/* The request log: one line for every request, whatever became of it, and their count. Nothing is written or counted
   until a host asks for it. */
#ifndef NETSIFT_LOG_REQUESTLOG_H
#define NETSIFT_LOG_REQUESTLOG_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* How a line is written. */
enum {
  NETSIFT_LOG_SQUID = 0,    /* the native format of squid's access log */
  NETSIFT_LOG_COMBINED = 1, /* the combined format of web servers */
  NETSIFT_LOG_JSON = 2,     /* an object a line, which alone holds all that is known */
  NETSIFT_LOG_FORMATS = 3
};

/* What became of a request. */
enum {
  NETSIFT_REQUEST_OPEN = 0, /* nothing yet */
  NETSIFT_REQUEST_DELIVERED = 1,
  NETSIFT_REQUEST_BLOCKED = 2,
  NETSIFT_REQUEST_ERROR = 3,    /* malformed, or there was no answer to be had: an error page */
  NETSIFT_REQUEST_TUNNELED = 4, /* a CONNECT */
  NETSIFT_REQUEST_RELAYED = 5,  /* unread: filtering is off, a messenger, another protocol */
  NETSIFT_REQUEST_ABORTED = 6,  /* client or site left before all was there */
  NETSIFT_REQUEST_OUTCOMES = 7
};

/* Why it was blocked. */
enum {
  NETSIFT_BLOCK_NONE = 0,
  NETSIFT_BLOCK_PORT = 1,
  NETSIFT_BLOCK_TUNNEL = 2,
  NETSIFT_BLOCK_LOCAL_ADDRESS = 3,
  NETSIFT_BLOCK_ADDRESS = 4,
  NETSIFT_BLOCK_ADS = 5,
  NETSIFT_BLOCK_LIST = 6,
  NETSIFT_BLOCK_UPLOAD = 7,
  NETSIFT_BLOCK_TYPE = 8,
  NETSIFT_BLOCK_RATING = 9,
  NETSIFT_BLOCK_PHRASES = 10,
  NETSIFT_BLOCK_VIRUS = 11,
  NETSIFT_BLOCK_UNSCANNED = 12,
  NETSIFT_BLOCK_UNJUDGED = 13,
  NETSIFT_BLOCK_ACCESS = 14,
  NETSIFT_BLOCK_KINDS = 15
};

/* What the engines said, of several pieces what counts most, and whether the verdict cache knew the page. */
enum {
  NETSIFT_SCANNED_NOT = 0,
  NETSIFT_SCANNED_CLEAN = 1,
  NETSIFT_SCANNED_NO_ANSWER = 2,
  NETSIFT_SCANNED_INFECTED = 3
};
enum { NETSIFT_CACHE_NONE = 0, NETSIFT_CACHE_MISS = 1, NETSIFT_CACHE_HIT = 2 };

typedef struct NetsiftRequestFigures {
  int32_t outcome, blocked; /* NETSIFT_REQUEST_..., NETSIFT_BLOCK_... */
  int32_t category;         /* from 1, of categname for a list, of categname1 for phrases; 0: none */
  int32_t status;           /* that the client got; 0: none */
  int32_t cache, scan;      /* NETSIFT_CACHE_..., NETSIFT_SCANNED_... */
  uint64_t bytes;           /* to the client */
  uint64_t microseconds;    /* from the request's first byte to its end */
  uint64_t engineMicroseconds;
} NetsiftRequestFigures;

/* Null at load. Else it is called at the end of every request, in the process that served it. */
NETSIFT_API extern void (*netsift_countRequest)(const NetsiftRequestFigures *figures);

/* What processes that write one log share, all zero at first. */
typedef struct NetsiftLogBoard {
  uint32_t round; /* raised by the host: each process opens the file anew before its next line */
  uint32_t lost;  /* lines that could not be written since one was */
} NetsiftLogBoard;

typedef struct NetsiftRequestLog {
  const char *path;
  int32_t format;    /* NETSIFT_LOG_... */
  int32_t cutsQuery; /* nonzero: URLs are written up to their "?" */
  NetsiftLogBoard *board;
  void (*tell)(const char *message); /* hears once when lines begin to be lost, and once when that is over */
} NetsiftRequestLog;

/* Opens the log for this process and those that it forks; null closes it. A file that cannot be opened yet is tried
   again with later lines, once a second. 1; 0 when there is no descriptor for it, and no log then. What `log` points
   to but itself must outlive the log. */
NETSIFT_API int32_t netsift_openRequestLog(const NetsiftRequestLog *log);

/* The record of a client that the host refuses by a rule of that level, once the client has its answer. */
NETSIFT_API void netsift_recordRefused(int32_t level);

/* While netsift_handOver is asked, of a relay that the host takes: what its record holds so far, as bytes that mean
   something to netsift_recordRelay alone. Returns how many were written; 0 when nothing is recorded, or `room` is less
   than NETSIFT_PACKED_RECORD. */
enum { NETSIFT_PACKED_RECORD = 3072 };
NETSIFT_API uint32_t netsift_packRecord(char *out, uint32_t room);

/* At the end of that relay, in whatever process: writes the record with the bytes that went to the client. */
NETSIFT_API void netsift_recordRelay(const char *packed, uint32_t size, uint64_t bytesToClient);

NETSIFT_END

#endif
