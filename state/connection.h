/* The connection that this process serves and the request it is at: read by every folder, written by the cycle. */
#ifndef NETSIFT_STATE_CONNECTION_H
#define NETSIFT_STATE_CONNECTION_H

#include <netdb.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Set by the host before connectionHandle. For an IPv6 client, which StrictHttp is needed for, `clientaddr` has the
   family AF_INET6 and else only zeros, and the host writes the address as text into `clientip`. */
NETSIFT_API extern int32_t clientsock;
NETSIFT_API extern struct sockaddr_in clientaddr;

/* The two ends. */
NETSIFT_API extern int32_t proxysock;            /* upstream socket; StrictHttp: -1 once it is closed */
NETSIFT_API extern struct sockaddr_in proxyaddr; /* what proxysock was connected to; of IPv6 the family alone */
NETSIFT_API extern char clientip[64];            /* the client's address as text */
NETSIFT_API extern int32_t childpid;             /* set when the scan file's path is built */

/* The request of the current cycle. */
NETSIFT_API extern Header reqheader, respheader;
NETSIFT_API extern char *url;        /* normalised: host and path, no scheme, no port; owned, null between requests */
NETSIFT_API extern char *hostname;   /* owned, null between requests */
NETSIFT_API extern char request[15]; /* the method word */
NETSIFT_API extern uint8_t isipaddr; /* 1: hostname is taken for a literal address */
NETSIFT_API extern struct hostent *reqhost;     /* reverse look-up of a literal-address host, or null */
NETSIFT_API extern struct hostent *remote_host; /* direct mode: resolution of hostname, or null; StrictHttp: null */
NETSIFT_API extern char *reshostname, *resurl;  /* reverse-resolved host and the URL rebuilt on it; owned */

/* The answer. */
NETSIFT_API extern char reason[200];          /* why the current request is blocked or failed; %r in templates */
NETSIFT_API extern char virwhite_reason[200]; /* why the current response is not scanned */
NETSIFT_API extern char *errorcode;      /* %e in templates: the log's latest line prefix, or a text of the host's */
NETSIFT_API extern char *dateAndTime1;   /* modification date of the current response, or null */
NETSIFT_API extern char httpbody[65536]; /* one chunk of a response body */
NETSIFT_API extern char virfilename[50]; /* path of the scan file */
NETSIFT_API extern FILE *virfile;        /* the open scan file while a piece is written to it */

NETSIFT_END

#endif
