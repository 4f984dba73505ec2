/* Clients of the two anti-virus engines. Both are daemons on this machine that read the scan file themselves: only its
   path travels, over a fresh connection to a fixed Unix socket, and one verdict comes back.

   Verdicts: 1 infected; 0 clean; -1 the engine is not running, broke off, or answered with a status that is unknown;
   -2 the engine failed at scanning; -3 the engine cannot recover (line dialogue only).

   Nothing is retried. A dialogue that is given up half-way leaves its socket open, for the process to release at its
   end. A peer that has gone is a failed write, never a signal.

   With StrictHttp a dialogue lasts EngineTimeout seconds at most, the greeting included, and ends when `clientsock` has
   left: -1, as an engine that broke off. No socket is left open, nothing is waited for once the verdict is there, and a
   reply is clean only by what it says: the second engine's by its last word, the primary's by a status. */
#ifndef NETSIFT_SCAN_VIRUSSCAN_H
#define NETSIFT_SCAN_VIRUSSCAN_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Asks the primary engine, at "/opt/Velmora/var/run/vlav", in its short protocol: "SCAN 0 <path>" without a line end,
   cut to 254 characters; one read of at most 255 bytes for the reply, a decimal status and the virus name.
   Status 2 and 4 exactly are infected; 32 exactly is -1; objects that are encrypted, corrupt or given up on (a status
   with bit 8, 16 or 64 set) pass as clean, and so does an engine that closes without a word.
   With StrictHttp it is -1 that closes without a word or answers with something else than a number.
   `name`, null or at least 256 bytes, is emptied first. It then holds what follows the status and one separator in an
   infected reply, line end included; "invalid null argument(s)" for a null path; "AV " when the engine cannot be
   reached or asked. There is no time limit but that of StrictHttp. */
NETSIFT_API int32_t Scan(const char *path, char *name);

/* Asks the primary engine in its line dialogue, waiting MAX_TIME_FOR_VLAV seconds for the greeting and without limit
   afterwards. `name`, null or at least 2047 bytes, is only written for a name line (322 to 324 before the verdict): the
   text after its first "-" up to the next blank or the line's end; the last one read wins, a line without "-" keeps
   the name as it was. -1 for a null path. */
NETSIFT_API int32_t isInfected(const char *path, char *name);

/* Asks the second engine, at "/opt/Velmora/var/run/vlcavd.sock", in the protocol of clamd(8): "SCAN <path>" without a
   line end, then one line that says ERROR (-2), else FOUND (1), else OK (0), else -2. With StrictHttp its last word has
   to be FOUND or OK, else -2. The name is not extracted; there is no time limit but that of StrictHttp. -1 for a null
   path. */
NETSIFT_API int32_t isInfectedclam(const char *path);

/* Reads one line, byte by byte, into `buffer` of `maximum` bytes: up to and with its LF, or maximum - 1 bytes of it,
   terminated. -1 on a read failure; 0 when the stream ended before any byte; else a positive number: the bytes stored
   when the line has its LF, one more than that when the stream or the room ended first. With a maximum of 0 or less
   nothing is read or written, and the result is 1. Interrupted reads are repeated. */
NETSIFT_API int readline(int fd, char *buffer, int maximum);

/* The three-digit code at the start of a reply line, from the character codes as they are: letters give odd numbers,
   and what lies past the end of a shorter line (or of a null one) counts as code 0. */
NETSIFT_API int getAVRespCode(const char *line);

NETSIFT_END

#endif
