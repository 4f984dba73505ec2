/* The leveled debug log, as a host has it: one shared stream, a line at a time, each with a time-and-process prefix.

   A line reads: debug string (if any), local time as "11:15:2026 12:45:07" (month:day:year), " Netsift[PID]: ",
   message. It goes out in one write, so that the lines of many processes on one file opened for appending interleave
   whole, and it is cut to 1023 bytes. Messages carry their own line end. The host chooses the file and the level; at
   load no stream is open, the level is 0 and nothing is written. */
#ifndef NETSIFT_LOG_HOSTLOG_H
#define NETSIFT_LOG_HOSTLOG_H

#include <stdint.h>
#include <stdio.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Opens `path` as dFileOpen does, then sets level, debug string and the two flags. With a null path the current stream
   is kept. Returns 1, or 0 when the path could not be opened (nothing else is set then). */
NETSIFT_API int dInitialise(const char *path, int8_t level, const char *debugString, uint8_t printPid,
                            uint8_t printTime);

/* Makes the file, opened for appending, the stream, and closes the one that it had opened before. Returns 1, or 0 when
   it could not be opened: there is no stream then. */
NETSIFT_API int dFileOpen(const char *path);

/* Makes the host's open stream the one written to, and changes nothing else; null ends logging. A file that the log had
   opened itself stays open until dFileOpen opens the next. */
NETSIFT_API void dFileStreamSet(FILE *stream);

/* Closes the stream, the host's too, and ends logging. Returns fclose's result; 0 when there was no stream. */
NETSIFT_API int dFileClose(void);

/* Keeps the low 8 bits, signed, as the highest level written, and returns them. */
NETSIFT_API int setDebugLevel(int level);

/* Sets the text that starts every line, at most its first 50 bytes. It is printed as it stands: a '%' means nothing.
   Null switches it off; getDebugString still gives the old text. */
NETSIFT_API void setDebugString(const char *text);

/* A copy of the debug string, to be freed by the caller; null when memory is short. */
NETSIFT_API char *getDebugString(void);

/* Two flags, 0 at load. A message is written only if one of them or the debug string is set; otherwise its line is the
   prefix alone, without a line end. The prefix holds time and process id whatever the flags say. */
NETSIFT_API void printPID(void);
NETSIFT_API void skipPID(void);
NETSIFT_API void printTime(void);
NETSIFT_API void skipTime(void);

/* Writes a line if a stream is open and `level` (its low 8 bits, signed) is at most the current one; always returns 0.
   Each written line replaces `errorcode` by a copy of its prefix (null when memory is short). The log releases the copy
   that it made before, never a text that the host put there. errno is left as it was. */
NETSIFT_API int netsift_dprintf(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

NETSIFT_END

/* <stdio.h> has a dprintf of another meaning, which a fortified build inlines; from here on the name is the log's. */
#define dprintf netsift_dprintf

#endif
