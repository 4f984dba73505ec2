#include "state/connection.h"

int32_t clientsock, proxysock, childpid;
struct sockaddr_in clientaddr, proxyaddr;
char clientip[64];

Header reqheader, respheader;
char *url, *hostname, *reshostname, *resurl, *dateAndTime1;
char request[15];
uint8_t isipaddr;
struct hostent *reqhost, *remote_host;

char reason[200], virwhite_reason[200];
char *errorcode;
char httpbody[65536];
char virfilename[50];
FILE *virfile;
