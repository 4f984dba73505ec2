#include "state/settings.h"

int32_t ProxyPresent, proxyport, PROXY_TIMEOUT, KeepUpstreamSeconds, DisableNetsiftService, DoNotKeepConnectionAlive,
    TunnelPacketsWithoutContentLength, StrictHttp, ClientIdleSeconds, RequestHeadSeconds, RequestBodySeconds,
    IdleSemaphore, EscapeText;
char *proxyip;

int32_t tunnelmessengers, ALLOWALLIP, whiteclientipinurl1, block_ports, enable_whitelist, blockupload, phraseinurl;
uint8_t logtunnel, blockip, urlcheck, blockad, blockpopup, numcategories;
char tunnellist[100][100], uploadwhitelist[100][100];
int32_t blockedports[100], connectports[100];
int32_t TunnelTlsOnly, ClientHelloSeconds, MatchServerName, TunnelIdleSeconds, RefuseLocalAddresses;
IpPattern *WhiteIP1, *BLACKIPINURL;
char **categfiles, **categname;
UrlList whitelist, adlist, popuplist, *categories;

char blockedcontent[100][100], JudgedTypes[100][100];
int32_t testforratings, ContentMatch, allowedweight, totalweight, contentinitialised, queue_count;
uint8_t contentcheck, addurltolist, uniqueoccur, numcategories1, icraenable, rsacenable, safesurfenable;
int32_t icra[40], rsac[4], safesurf[11];
int32_t *categweight;
char **categfiles1, **categname1;
PhraseNode **phraselists;
InitialEntry **initiallists;

uint8_t virusscan, DoVlavScan, DoClamScan;
int32_t VirWL_Domain, VirWL_MimeType, vs_tunnel, startScanSize, MAX_TIME_FOR_VLAV, EngineTimeout, disableCache,
    CacheMaxEntries, URL_CACHESIZE;
char VIRFILE_DIR[1024], viruswhitelist[100][100];
TextNode *URL_CACHE;

uint8_t logenable, logport, logip, logurl, logmime, lograting, logcontent;
char *logfilename, *mailto;
AclEntry *acllist;
int32_t numacllist;
