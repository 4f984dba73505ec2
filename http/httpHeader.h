/* Message heads (RFC 9112, section 2): read, asked, rewritten in place and sent as the lines they came in.

   A Header owns its lines and each line its text; all of it comes from malloc. Nothing is parsed for storage: a field
   is found by scanning for a line that starts with its name, colon included, whatever the case, and only the first such
   line counts unless said otherwise. Strings returned are new and freed by the caller. A null first line has no field
   and is no request; a line without text matches nothing. */
#ifndef NETSIFT_HTTP_HTTPHEADER_H
#define NETSIFT_HTTP_HTTPHEADER_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* A line with no text and no successor; null when memory is short. */
NETSIFT_API HeaderLine *createHeaderLine(void);

/* Frees the line and its text, not its successors; null is allowed. */
NETSIFT_API void destroyHeaderLine(HeaderLine *line);

/* Reads a head up to its empty line (CR LF; a bare LF does not end it), waiting up to `limit` seconds for the start of
   each line (0 or less: no limit). A line longer than 8192 bytes is stored as several. Returns 1 with the whole head,
   or 0 when a line was not read whole (time-out, failure, stream closed): the Header then holds what was read, the last
   line possibly without text. Starts a new list, so destroy the previous head first, and this one afterwards. */
NETSIFT_API unsigned getHeader(int fd, Header *header, int limit);

/* Sends all lines with one send that raises no SIGPIPE. Returns the bytes sent, possibly fewer than the head has; 0
   when the send failed, memory is short, or there is nothing to send. */
NETSIFT_API int sendHeader(int fd, const Header *header);

/* Frees all lines and sets `first` to null; the two counts stay. */
NETSIFT_API void destroyHeader(Header *header);

/* 1 when the line's text starts, after spaces, with the word (POST, PROPPATCH, PROPFIND, HEAD, CONNECT; for
   isAuthPresent "Proxy-Authorization"), case-sensitively; else 0. Prefix tests: "POSTX" is a POST. Only the line handed
   in is looked at, by isAuthPresent too. */
NETSIFT_API int isPOSTRequest(const HeaderLine *first);
NETSIFT_API int isPROPPATCHRequest(const HeaderLine *first);
NETSIFT_API int isPROPFINDRequest(const HeaderLine *first);
NETSIFT_API int isHEADRequest(const HeaderLine *first);
NETSIFT_API int isCONNECTRequest(const HeaderLine *first);
NETSIFT_API int isAuthPresent(const HeaderLine *first);

/* The status code: the three characters after the version and one space, of which only the first must be a digit; the
   line's end counts as a third of code 0. -1 when the first is no digit, or when the line ends before the second. */
NETSIFT_API int getResponseCode(const HeaderLine *first);

/* The value of the first line that starts with `prefix`: from the first character after it that is not a space, up to a
   space or CR (getFieldValue) or up to a CR (getFieldValue1). Null when there is no such line or no memory. The length
   has 8 bits: of a value of 300 characters, the first 44 come back. */
NETSIFT_API char *getFieldValue(const HeaderLine *first, const char *prefix);
NETSIFT_API char *getFieldValue1(const HeaderLine *first, const char *prefix);

/* The same for one field each. getAuthType gives the scheme word of Proxy-Authorization; getContentType stops at ';'
   too, so that parameters are left out. */
NETSIFT_API char *getHostName(const HeaderLine *first);
NETSIFT_API char *getTransferEncoding(const HeaderLine *first);
NETSIFT_API char *getContentCoding(const HeaderLine *first);
NETSIFT_API char *getAuthType(const HeaderLine *first);
NETSIFT_API char *getContentType(const HeaderLine *first);

/* Not null when the head has "Pragma: no-cache", with exactly one space, or "Content-Length:0", with none. The text is
   of no use, but is freed by the caller. */
NETSIFT_API char *isPragmaNoCache(const HeaderLine *first);
NETSIFT_API char *getContentLength1(const HeaderLine *first);

/* The Content-Length folded as decimal, wrapping in 32 bits; 0 when absent. Characters are not checked: a trailing
   space counts as a digit of value -16. */
NETSIFT_API int getContentLength(const HeaderLine *first);

/* 0 without a Proxy-Authorization line; 1 when "NTLM" stands 21 characters into it; 2 for anything else. */
NETSIFT_API int ShowAuth(const HeaderLine *first);

/* 1 when some Connection line contains "close" or "CLOSE", or some Proxy-Connection line "close"; else 0. "Close", as
   removePersistent writes it, does not count. */
NETSIFT_API int isconnectionclosed(const HeaderLine *first);

/* Rewrites of the first line with that field; none adds a field that is missing, and the Header's counts stay. A line
   that cannot grow for want of memory is left as it was. */
NETSIFT_API void modContentLength(HeaderLine *first, long length); /* "Content-Length: N" */
NETSIFT_API void modAccept(HeaderLine *first);                     /* Accept becomes "Accept: " and any type */
NETSIFT_API void modAcceptLanguage(HeaderLine *first);   /* Accept-Language becomes "Accept: en-us", so named */
NETSIFT_API void removeContentCoding(HeaderLine *first); /* these three set the field to "identity" */
NETSIFT_API void removeAcceptCoding(HeaderLine *first);
NETSIFT_API void removeTransferEncoding(HeaderLine *first);

/* In the first line that has "HTTP/1.1" anywhere, that and all after it becomes "HTTP/1.0" and CR LF. */
NETSIFT_API void modHTTPver(HeaderLine *first);

/* Unlinks and destroys the Content-Length line. The search starts after the line handed in, which always stays. */
NETSIFT_API void removeContentLength(HeaderLine *first);

/* Turns every Connection and Proxy-Connection line that contains "keep-alive" or "Keep-Alive" into "...: Close". */
NETSIFT_API void removePersistent(HeaderLine *first);

NETSIFT_END

#endif
