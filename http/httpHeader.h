/* Message heads: read, asked, rewritten in place and sent as the lines they came in. */
#ifndef NETSIFT_HTTP_HTTPHEADER_H
#define NETSIFT_HTTP_HTTPHEADER_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API HeaderLine *createHeaderLine(void);
NETSIFT_API void destroyHeaderLine(HeaderLine *line);
NETSIFT_API unsigned getHeader(int fd, Header *header, int limit);
NETSIFT_API int sendHeader(int fd, const Header *header);
NETSIFT_API void destroyHeader(Header *header);

NETSIFT_API int isPOSTRequest(const HeaderLine *first);
NETSIFT_API int isPROPPATCHRequest(const HeaderLine *first);
NETSIFT_API int isPROPFINDRequest(const HeaderLine *first);
NETSIFT_API int isHEADRequest(const HeaderLine *first);
NETSIFT_API int isCONNECTRequest(const HeaderLine *first);
NETSIFT_API int isAuthPresent(const HeaderLine *first);
NETSIFT_API int getResponseCode(const HeaderLine *first);

NETSIFT_API char *getFieldValue(const HeaderLine *first, const char *prefix);
NETSIFT_API char *getFieldValue1(const HeaderLine *first, const char *prefix);
NETSIFT_API char *getHostName(const HeaderLine *first);
NETSIFT_API char *getTransferEncoding(const HeaderLine *first);
NETSIFT_API char *getContentCoding(const HeaderLine *first);
NETSIFT_API char *getAuthType(const HeaderLine *first);
NETSIFT_API char *getContentType(const HeaderLine *first);
NETSIFT_API char *isPragmaNoCache(const HeaderLine *first);
NETSIFT_API char *getContentLength1(const HeaderLine *first);
NETSIFT_API int getContentLength(const HeaderLine *first);
NETSIFT_API int ShowAuth(const HeaderLine *first);
NETSIFT_API int isconnectionclosed(const HeaderLine *first);

NETSIFT_API void modContentLength(HeaderLine *first, long length);
NETSIFT_API void modAccept(HeaderLine *first);
NETSIFT_API void modAcceptLanguage(HeaderLine *first);
NETSIFT_API void modHTTPver(HeaderLine *first);
NETSIFT_API void removeContentLength(HeaderLine *first);
NETSIFT_API void removeContentCoding(HeaderLine *first);
NETSIFT_API void removeAcceptCoding(HeaderLine *first);
NETSIFT_API void removeTransferEncoding(HeaderLine *first);
NETSIFT_API void removePersistent(HeaderLine *first);

NETSIFT_END

#endif
