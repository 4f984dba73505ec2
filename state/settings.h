/* What the host sets before it serves: every variable is 0 or null at load. */
#ifndef NETSIFT_STATE_SETTINGS_H
#define NETSIFT_STATE_SETTINGS_H

#include <stdint.h>

#include "state/records.h"
#include "util/api.h"
#include "util/installRoot.h"

NETSIFT_BEGIN

/* The bits of StrictHttp. The others count only beside STRICT_HTTP. */
enum {
  STRICT_HTTP = 1,           /* messages are addressed, framed and judged as RFC 9110 and 9112 say */
  STRICT_BLOCK_WITH_200 = 2, /* block pages carry status 200 instead of 403 */
  STRICT_PASS_UNSCANNED = 4, /* what the engines cannot be asked about passes instead of being blocked */
  STRICT_PASS_UNJUDGED = 8   /* so does text in a content coding that cannot be read */
};

/* What ContentMatch says. CONTENT_WORDS counts only beside STRICT_HTTP. */
enum {
  CONTENT_BYTES = 0, /* phrases are compared with the page's bytes, made lower case and freed of tags */
  CONTENT_WORDS = 1  /* with the words that a reader sees, in whatever way they are written */
};

/* Upstream and service. */
NETSIFT_API extern int32_t ProxyPresent;  /* 1: everything goes to the upstream proxy; 0: direct to each origin */
NETSIFT_API extern char *proxyip;         /* upstream proxy, dotted-decimal text */
NETSIFT_API extern int32_t proxyport;     /* its port; in direct mode overwritten with each origin's */
NETSIFT_API extern int32_t PROXY_TIMEOUT; /* seconds, for every send to and read from upstream; 0: do not wait */
/* With StrictHttp: how long idle upstream sockets are kept for the process's next client; 0: they end with the client's
   connection. */
NETSIFT_API extern int32_t KeepUpstreamSeconds;
NETSIFT_API extern int32_t DisableNetsiftService;    /* 1: pass everything through, unread */
NETSIFT_API extern int32_t DoNotKeepConnectionAlive; /* nonzero: persistence fields are taken out of requests */
NETSIFT_API extern int32_t TunnelPacketsWithoutContentLength; /* 1: relay a kept-alive response without a length raw */
NETSIFT_API extern int32_t StrictHttp;         /* a sum of the STRICT_... bits; 0: everything as it always was */
NETSIFT_API extern int32_t ClientIdleSeconds;  /* with StrictHttp: between two requests of a client; 0: 10 */
NETSIFT_API extern int32_t RequestHeadSeconds; /* with StrictHttp: for the whole of a request's head; 0: 10 */
/* With StrictHttp: how long a client is waited for in its body, and a second more for each 500 bytes of that; 0: no limit. */
NETSIFT_API extern int32_t RequestBodySeconds;
/* With StrictHttp: an eventfd made with EFD_SEMAPHORE and EFD_NONBLOCK, 0 for none. A connection that waits for a request
   takes one from it, when there is one, and ends. */
NETSIFT_API extern int32_t IdleSemaphore;
NETSIFT_API extern int32_t EscapeText; /* 1: peers' text is escaped in pages and logs; 0: as it is */

/* Request policy. */
NETSIFT_API extern int32_t tunnelmessengers;       /* nonzero: requests that match tunnellist pass untouched */
NETSIFT_API extern uint8_t logtunnel;              /* nonzero: with a transcript */
NETSIFT_API extern char tunnellist[100][100];      /* URL fragments; the first empty entry ends the list */
NETSIFT_API extern uint8_t blockip;                /* nonzero: refuse hosts that are addresses; the cycle changes it */
NETSIFT_API extern uint8_t urlcheck;               /* 1: consult the category blacklists; the cycle changes it */
NETSIFT_API extern IpPattern *WhiteIP1;            /* hosts exempt from blockip and the blacklists */
NETSIFT_API extern int32_t ALLOWALLIP;             /* 1: consult BLACKIPINURL */
NETSIFT_API extern IpPattern *BLACKIPINURL;        /* hosts refused as address hosts */
NETSIFT_API extern int32_t whiteclientipinurl1;    /* only traced */
NETSIFT_API extern int32_t block_ports;            /* nonzero: refuse the ports of blockedports */
NETSIFT_API extern int32_t blockedports[100];      /* the first 0 ends the list */
NETSIFT_API extern uint8_t blockad;                /* 1: consult adlist */
NETSIFT_API extern int32_t enable_whitelist;       /* 1: consult whitelist */
NETSIFT_API extern uint8_t blockpopup;             /* 1: insert the script into pages of sites not on popuplist */
NETSIFT_API extern int32_t blockupload;            /* nonzero: look for uploads in request bodies */
NETSIFT_API extern char uploadwhitelist[100][100]; /* URL fragments of servers that may take uploads */
NETSIFT_API extern int32_t phraseinurl;   /* how phrase files become URL patterns: 0 prefix, nonzero anywhere */
NETSIFT_API extern uint8_t numcategories; /* blacklist categories */
NETSIFT_API extern char **categfiles, **categname; /* base names and display names, numcategories each */
NETSIFT_API extern UrlList whitelist, adlist, popuplist;
NETSIFT_API extern UrlList *categories; /* numcategories lists, made by makeBlackLists */

/* Tunnels and where requests lead: with StrictHttp. */
NETSIFT_API extern int32_t connectports[100]; /* where a CONNECT may go; the first 0 ends the list; none: every port */
NETSIFT_API extern int32_t TunnelTlsOnly; /* 1: it begins with a ClientHello, whose name is judged, or as a WebSocket */
NETSIFT_API extern int32_t ClientHelloSeconds;   /* in which that is to be whole; 0: as a request's head */
NETSIFT_API extern int32_t MatchServerName;      /* 1: that name is the CONNECT's host, unless that is an address */
NETSIFT_API extern int32_t TunnelIdleSeconds;    /* of a relay without traffic; 0: 100 */
NETSIFT_API extern int32_t RefuseLocalAddresses; /* 1: nothing is asked of this machine's own addresses */

/* Response policy and content. */
NETSIFT_API extern char blockedcontent[100][100];    /* substrings of refused content types */
NETSIFT_API extern int32_t testforratings;           /* nonzero: judge PICS labels */
NETSIFT_API extern uint8_t contentcheck;             /* nonzero: weigh phrases */
NETSIFT_API extern int32_t ContentMatch;             /* one of CONTENT_...; set before the phrases are loaded */
NETSIFT_API extern char JudgedTypes[100][100];       /* with CONTENT_WORDS: types that are text, "*" for any run */
NETSIFT_API extern uint8_t addurltolist;             /* nonzero: report condemned URLs to the host */
NETSIFT_API extern int32_t allowedweight;            /* a category whose score reaches this condemns the page */
NETSIFT_API extern uint8_t uniqueoccur;              /* nonzero: a phrase counts once a page */
NETSIFT_API extern uint8_t numcategories1;           /* phrase categories */
NETSIFT_API extern char **categfiles1, **categname1; /* base names and display names, numcategories1 each */
NETSIFT_API extern uint8_t icraenable, rsacenable, safesurfenable; /* 1: judge that vocabulary */
NETSIFT_API extern int32_t icra[40], rsac[4], safesurf[11];        /* highest allowed value of each key */

/* Content tables, made by makePhraseLists and iniContentFilter. */
NETSIFT_API extern PhraseNode **phraselists;
NETSIFT_API extern InitialEntry **initiallists;
NETSIFT_API extern int32_t *categweight;
NETSIFT_API extern int32_t totalweight, contentinitialised, queue_count;

/* Virus scanning and the verdict cache. */
NETSIFT_API extern uint8_t virusscan;                    /* nonzero: scan response bodies */
NETSIFT_API extern uint8_t DoVlavScan, DoClamScan;       /* 1: with the primary, with the clamd-protocol engine */
NETSIFT_API extern int32_t VirWL_Domain, VirWL_MimeType; /* nonzero: skip by host, by content type */
NETSIFT_API extern int32_t vs_tunnel;                    /* 1: whitelisted sites are relayed untouched */
NETSIFT_API extern int32_t startScanSize;                /* KiB collected before the first scan; 0: from the length */
NETSIFT_API extern int32_t MAX_TIME_FOR_VLAV;            /* seconds the line dialogue waits for a greeting */
NETSIFT_API extern int32_t
    EngineTimeout;                       /* with StrictHttp: seconds for a whole dialogue with an engine; 0: no limit */
NETSIFT_API extern int32_t disableCache; /* 1: verdicts are neither looked up nor stored */
NETSIFT_API extern int32_t CacheMaxEntries;       /* verdicts that are kept, some hundredths more at times; 0: all */
NETSIFT_API extern int32_t URL_CACHESIZE;         /* the host's own count, only traced here */
NETSIFT_API extern char VIRFILE_DIR[1024];        /* folder of scan files, with its trailing "/" */
NETSIFT_API extern char viruswhitelist[100][100]; /* texts of inVirusWhiteList; the first empty entry ends it */
NETSIFT_API extern TextNode *URL_CACHE;           /* the host's own list */

/* The library leaves these two undefined; the host defines them: the bytes of the script inserted into pages when
   blockpopup is on, and their count. */
NETSIFT_API extern char popupblocker[];
NETSIFT_API extern int32_t popuplen;

/* Logs, pages, access list. */
NETSIFT_API extern uint8_t logenable; /* nonzero: the access log is written */
NETSIFT_API extern uint8_t logport, logip, logurl, logmime, lograting, logcontent; /* nonzero: for that kind of block */
NETSIFT_API extern char *logfilename; /* name of the access log inside the log folder */
NETSIFT_API extern char *mailto;      /* %a in templates */
NETSIFT_API extern AclEntry *acllist;
NETSIFT_API extern int32_t numacllist;

NETSIFT_END

#endif
