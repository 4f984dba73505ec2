/* URL and domain lists: their files, loading and look-up. */
#ifndef NETSIFT_POLICY_URLLIST_H
#define NETSIFT_POLICY_URLLIST_H

#include <stdio.h>

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int buildURLList(const char *name, UrlList *list);
NETSIFT_API void freeURLList(UrlList *list);
NETSIFT_API int makeWhiteList(void);
NETSIFT_API int makeADList(void);
NETSIFT_API int makePOPUPList(void);
NETSIFT_API int makeBlackLists(void);
NETSIFT_API void freeWhiteList(void);
NETSIFT_API void freeADList(void);
NETSIFT_API void freePOPUPList(void);
NETSIFT_API void freeBlackLists(void);
NETSIFT_API int readPhrase1(const char *phrasePath, const char *urlPath, const char *origPath);
NETSIFT_API char *readURL(FILE *stream);
NETSIFT_API int numLines(FILE *stream);
NETSIFT_API int numWildCardLines(FILE *stream);
NETSIFT_API int inURLList(SymbolTable *table, char **wildcards, char **domains, const char *url);
NETSIFT_API int inDomainList(SymbolTable *table, char **wildcards, char **domains, char *host, int isIP);
NETSIFT_API int isDomainMatching(char *host, char *entry, int isIP);
NETSIFT_API int inWhiteList(const char *url, char *host, int isIP);
NETSIFT_API int inADList(const char *url, char *host, int isIP);
NETSIFT_API int inPOPUPList(const char *url, char *host, int isIP);
NETSIFT_API signed char inBlackLists(const char *url, char *host, int isIP);

NETSIFT_END

#endif
