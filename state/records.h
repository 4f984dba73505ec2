/* The records that more than one folder reads or that the host fills. Layouts are part of the binary interface. */
#ifndef NETSIFT_STATE_RECORDS_H
#define NETSIFT_STATE_RECORDS_H

#include <stdint.h>

#include "util/symbolTable.h"

/* One line of a message head exactly as received: its CR (if any) and LF stay at the end of `text`. */
typedef struct HeaderLine {
  char *text; /* owned, malloc; null in a line that was never filled */
  struct HeaderLine *next;
} HeaderLine;

/* A message head. The two counts describe the head as read; rewriting lines does not change them. */
typedef struct Header {
  HeaderLine *first; /* the request or status line; null when empty or destroyed */
  uint32_t totalBytes;
  uint32_t lineCount;
} Header;

/* A loaded list of URLs and domains. */
typedef struct UrlList {
  SymbolTable *table; /* URL entries without "*": looked up whole */
  char **wildcards;   /* URL entries with "*", in file order, null-terminated */
  char **domains;     /* domain entries, in file order, null-terminated */
} UrlList;

/* An IPv4 address as text, possibly ending in "*"; NUL-padded, and without a NUL when it fills all 16 bytes. */
typedef struct IpPattern {
  char pattern[16];
  struct IpPattern *next;
} IpPattern;

/* One rule of the time-dependent access list. */
typedef struct AclEntry {
  uint32_t network, mask; /* in the byte order of the address passed to getAccessControl */
  int32_t from, to;       /* minutes of the day, 0 to 1439, both inclusive */
  int8_t level;
} AclEntry;

/* A weighted phrase, in file order. */
typedef struct PhraseNode {
  char *phrase; /* owned */
  int32_t weight;
  struct PhraseNode *next;
} PhraseNode;

/* The run of consecutive phrases that share a first byte; an array of these ends with a byte of 0. */
typedef struct InitialEntry {
  int8_t firstByte;
  PhraseNode *first, *end; /* end: exclusive */
} InitialEntry;

/* A list of texts, each a private copy. */
typedef struct TextNode {
  char *text;
  struct TextNode *next;
} TextNode;

#endif
