/* A head as a peer sends it: read, asked everything, rewritten, sent on. */
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "http/httpHeader.h"
#include "http/requestUrl.h"

namespace {

void askEverything(HeaderLine *first) {
  for (char *(*question)(const HeaderLine *) :
       {getHostName, getTransferEncoding, getContentCoding, getAuthType, getContentType, isPragmaNoCache,
        getContentLength1, getModificationTime}) {
    std::free(question(first));
  }
  for (int (*question)(const HeaderLine *) :
       {isPOSTRequest, isPROPPATCHRequest, isPROPFINDRequest, isHEADRequest, isCONNECTRequest, isAuthPresent,
        getResponseCode, getContentLength, ShowAuth, isconnectionclosed}) {
    question(first);
  }
  for (void (*rewrite)(HeaderLine *) : {modAccept, modAcceptLanguage, modHTTPver, removeContentCoding,
                                        removeAcceptCoding, removeTransferEncoding, removePersistent}) {
    rewrite(first);
  }
  modContentLength(first, 1L << 40);
  removeContentLength(first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int ends[2];
  if (size > 60000 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  const ssize_t sent = write(ends[1], data, size);
  shutdown(ends[1], SHUT_WR);
  Header header{};
  if (sent == static_cast<ssize_t>(size) && getHeader(ends[0], &header, 1) != 0) {
    if (header.totalBytes > size) std::abort();
    askEverything(header.first);
    sendHeader(ends[0], &header);
  }
  destroyHeader(&header);
  close(ends[0]);
  close(ends[1]);
  return 0;
}
