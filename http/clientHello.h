/* The first message of TLS: whether a client begins with it, and the name of the server that it asks for. Internal to
   the library. */
#ifndef NETSIFT_HTTP_CLIENTHELLO_H
#define NETSIFT_HTTP_CLIENTHELLO_H

#include <cstddef>
#include <string>
#include <string_view>

#include "http/strictParse.h"

namespace netsift {

/* With the headers of its records; browsers' are of 500 to 2000 bytes. */
constexpr size_t mostHelloBytes = 32768;

struct ClientHello {
  std::string serverName; /* as it came; empty: none is asked for. Of an encrypted hello it is the outer one. */
  size_t needed = 0;      /* `more`: of fewer bytes it cannot be the whole */
};

/* Reads the message from the first bytes of a connection (RFC 8446 sections 4.1.2 and 5.1; the name: RFC 6066 section
   3), over as many records as it comes in. What is behind it is not looked at. `bad`: these bytes do not begin a
   ClientHello, or one that is longer than mostHelloBytes, malformed, or with several names. What is `done` or `bad`
   stays so whatever comes behind. */
Parse readClientHello(std::string_view bytes, ClientHello &hello);

enum class HelloRead {
  done,
  notTls,
  serverFirst, /* the server has said something before the client did, as no server of TLS does */
  timedOut,
  clientLeft,
  serverLeft
};

/* Waits until the client's hello is there, no longer than `seconds` in all, and reads it; its bytes stay on the socket
   for whoever relays them. `upstream` is watched meanwhile. */
HelloRead awaitClientHello(int client, int upstream, int seconds, ClientHello &hello);

}  // namespace netsift

#endif
