/* A connection served as the daemon serves one, between a client and an upstream that are made up here. */
#ifndef NETSIFT_TOOLS_MADEUPPEERS_H
#define NETSIFT_TOOLS_MADEUPPEERS_H

#include <string>

#include "tools/netsiftctl/record.h"
#include "util/socketAddress.h"

namespace netsift::ctl {

/* What the client sends and the upstream answers. */
struct Scene {
  SocketAddress client{};
  std::string request;    /* its head */
  std::string serverName; /* that it asks for in a tunnel, once that is open; "": it sends none */
  bool isTunnel = false;
  std::string answer; /* of the upstream to a request that is no CONNECT */
};

struct Served {
  Record record;
  std::string reason;   /* for the page, when there is one */
  std::string received; /* the first bytes of what the client got */
  bool isPassed;        /* something came through to the upstream */
};

/* Serves it in this process, whose settings are made and lists loaded. Everything is then as it was before: an image is
   taken at the first call. Descriptors of `firstDescriptor` and above are closed. */
Served serveScene(const Scene &scene, int firstDescriptor);

}  // namespace netsift::ctl

#endif
