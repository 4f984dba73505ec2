/* What the log prints of text that a peer sent. Internal to the library. */
#ifndef NETSIFT_LOG_PEERTEXT_H
#define NETSIFT_LOG_PEERTEXT_H

#include "state/records.h"

namespace netsift {

/* The text as a log line shows it: null as nothing; with EscapeText quotes, backslashes and control bytes escaped as
   logEscape does, so that no peer can forge a line, and cut to 280 bytes and "..." so that a line keeps its end;
   else as it is. Valid until the eighth call after this one. */
const char *peerText(const char *text);

/* Prints a line that came with its line end: as it came, or escaped, cut to 900 bytes and "...", and with a line end
   of the log's own; null not at all. */
void tracePeerLine(int level, const char *line);

/* So a head's lines, at level 5. */
void traceHeadLines(const Header &header);

}  // namespace netsift

#endif
