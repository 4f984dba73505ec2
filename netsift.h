/* libnetsift: a filtering web front proxy, one client connection per process at a time. This is the one header a host
   includes; it is usable from C11 and C++20. docs/host.md shows how to write a host.

   What holds of every operation, unless its own comment says otherwise:

   - One connection at a time. The connection being served, the settings and the lists are process-wide variables, and
     nothing is locked: one thread calls. Serve each connection in a process of its own, forked after loading, or go
     back to what was before with netsift_resetState.
   - Order. Settings first, then the lists (make...), the log (dInitialise), then connections. A setting is 0 or null at
     load; what is loaded stays until its free... operation and is only read while serving.
   - Who owns what. A text that is returned is the caller's, to be released with free. A text, record or list that is
     handed in stays the caller's and is not kept; those that settings point to must outlive their use. "Inside the
     argument" is not to be freed. Lines belong to their Header, entries to their list or table.
   - Texts end in a NUL. Where a length goes with a buffer, the buffer is bytes and may hold any, and needs a NUL only
     where that is said. Nothing outside what was handed in is read or written.
   - Results. Predicates give 1 or 0. Loaders give 1, or -1, which some callers hold in a byte: 255 is -1. Other numbers
     have names in state/results.h. A look-up that finds nothing, or no memory, returns null.
   - Units. Time limits are whole seconds and count for each wait, not for a transfer: 0 takes what is there, a negative
     one waits for ever. Sizes are bytes, ports are in host byte order, addresses as their operation says.
   - Failures are results and a line in the debug log; no exception leaves the library, and errno says nothing after a
     call. Running out of memory where no failure is named ends the process that serves the connection.
   - Descriptors stay open, but for those that StrictHttp closes: who opened or accepted one closes it. SIGPIPE is to be ignored by the host.
   - Paths. The system's fixed ones ("/opt/Velmora/...", "/var/Velmora/...") lie behind `installroot`; one that is an
     argument is used as it stands. */
#ifndef NETSIFT_H
#define NETSIFT_H

#include "cache/dbcache.h"
#include "cache/hostNotify.h"
#include "connection/connectionReset.h"
#include "connection/connection_trickle.h"
#include "connection/verdict.h"
#include "content/contentFilter.h"
#include "content/htmlToText.h"
#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "content/ratings.h"
#include "content/wildcard.h"
#include "http/decompression.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/listForm.h"
#include "http/requestUrl.h"
#include "http/socket.h"
#include "log/accessLog.h"
#include "log/hostLog.h"
#include "log/requestLog.h"
#include "pages/answer.h"
#include "pages/htmlTemplate.h"
#include "policy/accessList.h"
#include "policy/attachFile.h"
#include "policy/blacklistAdd.h"
#include "policy/popupIndex.h"
#include "policy/urlList.h"
#include "scan/handOver.h"
#include "scan/scanTunnel.h"
#include "scan/tunnel.h"
#include "scan/virusScan.h"
#include "scan/virusWhitelist.h"
#include "state/connection.h"
#include "state/observer.h"
#include "state/results.h"
#include "state/settings.h"
#include "util/file.h"
#include "util/stringIntHash.h"
#include "util/symbolTable.h"
#include "util/text.h"
#include "util/version.h"

#endif
