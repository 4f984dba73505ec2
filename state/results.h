/* Names for the numbers that operations answer with. The values are part of the binary interface; an operation's own
   header says which of them it gives, and when. */
#ifndef NETSIFT_STATE_RESULTS_H
#define NETSIFT_STATE_RESULTS_H

/* connectionHandle. */
enum {
  NETSIFT_CONNECTION_ENDED = 1,       /* in the ordinary way, or with a block page */
  NETSIFT_CONNECTION_TUNNELED = 0,    /* a CONNECT was relayed to its end */
  NETSIFT_CONNECTION_FAILED = -1,     /* a failure, or a page blocked for its URL, type or content */
  NETSIFT_CONNECTION_CLIENT_LEFT = -9 /* in the middle of a body that was spooled for the scan */
};

/* checkAllRight. */
enum { NETSIFT_PAGE_PASSES = 0, NETSIFT_PAGE_BLOCKED = -1 };

/* The verdict on a file: isVirusInfection, Scan, isInfected, isInfectedclam. */
enum {
  NETSIFT_SCAN_INFECTED = 1,
  NETSIFT_SCAN_CLEAN = 0,
  NETSIFT_SCAN_NOT_RUNNING = -1, /* nobody there, broke off, or a reply that means nothing */
  NETSIFT_SCAN_FAILED = -2,
  NETSIFT_SCAN_GAVE_UP = -3 /* the engine cannot recover */
};

/* tunnel_vs. */
enum { NETSIFT_RELAY_ENDED = 0, NETSIFT_RELAY_BLOCKED = -9 };

/* The verdict that the cache keeps of a page: what if_url_scanned_check_ok answers and addto_urlcache_db takes. */
enum {
  NETSIFT_CACHED_CLEAN = 0,
  NETSIFT_CACHED_INFECTED = 1,
  NETSIFT_CACHED_OFFENSIVE = 2,
  NETSIFT_NOT_CACHED = -1 /* an answer only */
};

/* The status of block reads: readFromSocket, readGZFromSocket, getHTTPBody, getGZHTTPBody. */
enum {
  NETSIFT_READ_FILLED = 0, /* the buffer is full */
  NETSIFT_READ_ENDED = 1,  /* the expected length is reached, or the stream has ended */
  NETSIFT_READ_TIMED_OUT = 2,
  NETSIFT_READ_FAILED = 3
};

/* The status of line reads, an unsigned byte: getSocketLine, getSocketLine1. */
enum {
  NETSIFT_LINE_READ = 0,
  NETSIFT_LINE_ENDED = 1,      /* the stream ended: the line is what came before */
  NETSIFT_LINE_CUT = 253,      /* no memory to grow: the line as far as it was read */
  NETSIFT_LINE_FAILED = 254,   /* a failed wait, or no memory */
  NETSIFT_LINE_TIMED_OUT = 255 /* nothing came in time */
};

/* Sends of a whole buffer: sendToSocket, sendHTTPBody. */
enum { NETSIFT_SEND_DONE = 0, NETSIFT_SEND_TIMED_OUT = -1, NETSIFT_SEND_FAILED = -2, NETSIFT_SEND_NOTHING_TAKEN = -3 };

/* Loaders: the make operations of lists and phrase lists, buildURLList, iniContentFilter, initialiseFifo. */
enum { NETSIFT_LOADED = 1, NETSIFT_LOAD_FAILED = -1 };

/* What isCompressed finds. */
enum { NETSIFT_CODING_IDENTITY = 0, NETSIFT_CODING_GZIP = 1, NETSIFT_CODING_DEFLATE = 2, NETSIFT_CODING_COMPRESS = 3 };

#endif
