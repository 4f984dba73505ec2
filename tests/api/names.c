/* What a C11 host is compiled with: the names of results are what operations answer, and the headers are those of the
   library that it runs with. Ends with the line of the first check that does not hold. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "netsift.h"

char popupblocker[] = "";
int32_t popuplen = 0;

#define CHECK(holds) \
  if (!(holds)) return printf("%s:%d: %s\n", __FILE__, __LINE__, #holds), 1

static int version(void) {
  char joined[32];
  snprintf(joined, sizeof joined, "%d.%d.%d", NETSIFT_VERSION_MAJOR, NETSIFT_VERSION_MINOR, NETSIFT_VERSION_PATCH);
  CHECK(strcmp(joined, NETSIFT_VERSION) == 0);
  CHECK(strcmp(netsift_version(), NETSIFT_VERSION) == 0);
  return 0;
}

static unsigned char readStatus(int fd, unsigned length, int expected) {
  char buffer[8];
  return getHTTPBody(fd, buffer, &length, 0, expected);
}

static unsigned char lineStatus(int fd) {
  unsigned length = 100;
  unsigned char status = 77;
  free(getSocketLine(fd, &length, &status, 1));
  return status;
}

static int transfers(void) {
  int ends[2];
  CHECK(pipe(ends) == 0);
  CHECK(sendToSocket(ends[1], "abcd\nx", 6, 1) == NETSIFT_SEND_DONE);
  CHECK(sendToSocket(ends[1], "", 0, 1) == NETSIFT_SEND_NOTHING_TAKEN);
  CHECK(sendToSocket(-1, "x", 1, 0) == NETSIFT_SEND_FAILED);
  CHECK(readStatus(ends[0], 2, 2) == NETSIFT_READ_FILLED);
  CHECK(readStatus(ends[0], 2, 1) == NETSIFT_READ_FILLED);
  CHECK(lineStatus(ends[0]) == NETSIFT_LINE_READ);
  CHECK(readStatus(ends[0], 8, 1) == NETSIFT_READ_ENDED);
  CHECK(readStatus(ends[0], 8, 8) == NETSIFT_READ_TIMED_OUT);
  CHECK(readStatus(-1, 8, 8) == NETSIFT_READ_FAILED);
  CHECK(lineStatus(ends[0]) == NETSIFT_LINE_TIMED_OUT);
  CHECK(lineStatus(-1) == NETSIFT_LINE_FAILED);
  close(ends[1]);
  CHECK(lineStatus(ends[0]) == NETSIFT_LINE_ENDED);
  return 0;
}

static int answers(void) {
  installroot = (char[]){"/nowhere"};
  CHECK(makeWhiteList() == NETSIFT_LOAD_FAILED);
  CHECK(iniContentFilter() == NETSIFT_LOADED);
  CHECK(if_url_scanned_check_ok("host/", "Sun, 06 Nov 1994 08:49:37 GMT") == NETSIFT_NOT_CACHED);
  CHECK(isInfectedclam("/file") == NETSIFT_SCAN_NOT_RUNNING);
  CHECK(isVirusInfection("/file", NULL, 0, 0) == NETSIFT_SCAN_CLEAN);
  CHECK(isCompressed("x-gzip") == NETSIFT_CODING_GZIP && isCompressed("deflate") == NETSIFT_CODING_DEFLATE);
  CHECK(isCompressed("br") == NETSIFT_CODING_IDENTITY && isCompressed("compress") == NETSIFT_CODING_COMPRESS);
  CHECK(checkAllRight(NULL, 0, 1) == NETSIFT_PAGE_PASSES);
  return 0;
}

int main(void) { return version() || transfers() || answers(); }
