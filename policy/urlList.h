/* URL and domain lists: their files, loading and look-up.

   A list N lives in the configuration folder: N.url.orig (URL entries, the administrator's), N.phrase (its weighted
   phrases, whose single words become URL patterns), N.url (both together, written anew at every load) and N.dom (domain
   entries). One entry a line, no comments; a line ends at CR, LF, the file's end, or a byte of 0xFF, which ends the
   whole file. A URL entry without "*" is the URL itself (host and path), one with "*" a pattern of isMatching; a domain
   entry is a host name, or the leading numbers of an address.

   A loaded list has indexes beside its entries, so that a look-up costs about the same in any list. They are for the
   arrays and the table as they were loaded: whoever adds a URL does so by sym_create_symbol_ (or addURLToList), and does
   not exchange entries of the arrays. A list that a host put together by itself is walked.

   Results are 1 and 0, or 1 and -1 for the operations that load; callers test the latter as an unsigned byte of 255. */
#ifndef NETSIFT_POLICY_URLLIST_H
#define NETSIFT_POLICY_URLLIST_H

#include <stdio.h>

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Loads the list of base name `name` into `list`, whatever that held before. 1; -1 when the .url or .dom file cannot be
   opened or memory is short, traced at level 1: what was loaded until then stays in the list for freeURLList. A .url
   file that could not be written anew is used as it is. A wildcard line that numWildCardLines does not count is not
   kept. */
NETSIFT_API int buildURLList(const char *name, UrlList *list);

/* Releases what buildURLList loaded and leaves an empty list. */
NETSIFT_API void freeURLList(UrlList *list);

/* The lists "whitelist", "adserver" and "popup" into `whitelist`, `adlist` and `popuplist`. As buildURLList. */
NETSIFT_API int makeWhiteList(void);
NETSIFT_API int makeADList(void);
NETSIFT_API int makePOPUPList(void);

/* Allocates `categories` and loads into it the `numcategories` lists that `categfiles` names, in order. The order of
   all these calls is the host's choice; `numcategories`, `categfiles` and `categname` are to be set before this one.
   1; -1 at the first list that fails: those before it are loaded, those after it empty, and freeBlackLists is safe. */
NETSIFT_API int makeBlackLists(void);

/* Each releases what its make operation loaded; `numcategories` is still to be what it was. */
NETSIFT_API void freeWhiteList(void);
NETSIFT_API void freeADList(void);
NETSIFT_API void freePOPUPList(void);
NETSIFT_API void freeBlackLists(void);

/* Writes the .url file anew: the .url.orig file byte for byte, the patterns of the phrase file's single words, an empty
   line. Under `phraseinurl` 0 a word w gives "w*" and "www.w*", else "*w*"; an empty word gives none. Then hands the
   configuration folder to the user and group vlconf, by two commands of the shell: what these complain of goes to
   standard error, or nowhere while `StrictHttp` is on.
   0; -1 when the phrase or the .url.orig file is not there to be read and written (the .url file is untouched), or when
   the .url file cannot be written (traced at level 1 if it was begun). */
NETSIFT_API int readPhrase1(const char *phrasePath, const char *urlPath, const char *origPath);

/* The next line without its end, for the caller to free: empty at the end of the file, null when memory is short. */
NETSIFT_API char *readURL(FILE *stream);

/* How many calls of readURL reach the end: CRs and LFs, and one for the end itself, so that a CR LF counts two and the
   surplus reads empty lines. A file that is empty or ends in a NUL has no one for its end. Rewinds the stream. */
NETSIFT_API int numLines(FILE *stream);

/* LFs that follow a "*" on their line; CR ends no line here. Rewinds the stream. */
NETSIFT_API int numWildCardLines(FILE *stream);

/* 1: `url` is in `table` or matches a wildcard. The domains are not asked. A list that was never loaded is empty. */
NETSIFT_API int inURLList(SymbolTable *table, char **wildcards, char **domains, const char *url);

/* 1: some entry of `domains` that is not blank matches `host`. Both are trimmed in place. */
NETSIFT_API int inDomainList(SymbolTable *table, char **wildcards, char **domains, char *host, int isIP);

/* 1: `entry` is the host, or the host ends in a dot and the entry (isIP 0), or begins with the entry and a dot
   (isIP 1). Trims both in place, and an address entry that had to be trimmed matches only its equal in that call. An
   entry of more than 1,021 bytes, blanks included, matches only its equal. */
NETSIFT_API int isDomainMatching(char *host, char *entry, int isIP);

/* 1: the named list has the URL, else the host. */
NETSIFT_API int inWhiteList(const char *url, char *host, int isIP);
NETSIFT_API int inADList(const char *url, char *host, int isIP);
NETSIFT_API int inPOPUPList(const char *url, char *host, int isIP);

/* 0: in no category; else the number, from 1, of the first category that has the URL or the host. Numbers from 128 on
   come out negative: widen the result as an unsigned byte. */
NETSIFT_API signed char inBlackLists(const char *url, char *host, int isIP);

NETSIFT_END

#endif
