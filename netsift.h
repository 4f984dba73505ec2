/* libnetsift: a filtering web front proxy, one client connection per process.
   This is the one header a host includes; it is usable from C11 and C++20. docs/host.md shows how to write a host.

   Running out of memory where no failure is named ends the process that serves the connection. */
#ifndef NETSIFT_H
#define NETSIFT_H

#include "cache/dbcache.h"
#include "cache/hostNotify.h"
#include "connection/answer.h"
#include "connection/connection_trickle.h"
#include "connection/htmlTemplate.h"
#include "connection/verdict.h"
#include "content/htmlToText.h"
#include "content/phraseList.h"
#include "content/phraseScan.h"
#include "content/ratings.h"
#include "content/wildcard.h"
#include "http/decompression.h"
#include "http/httpBody_iter.h"
#include "http/httpHeader.h"
#include "http/requestUrl.h"
#include "http/socket.h"
#include "log/accessLog.h"
#include "log/hostLog.h"
#include "policy/accessList.h"
#include "policy/attachFile.h"
#include "policy/blacklistAdd.h"
#include "policy/popupIndex.h"
#include "policy/urlList.h"
#include "scan/scanTunnel.h"
#include "scan/tunnel.h"
#include "scan/virusScan.h"
#include "scan/virusWhitelist.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/file.h"
#include "util/stringIntHash.h"
#include "util/symbolTable.h"
#include "util/text.h"

#endif
