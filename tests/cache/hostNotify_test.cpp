#include "cache/hostNotify.h"

#include <fcntl.h>

#include "tests/support/scriptedDaemon.h"

TEST(HostNotify, LeavesTheSocketThatReachedNobodyOpenUnlessStrict) {
  const ScratchRoot root;
  for (int strict : {1, 0}) {
    StrictHttp = strict;
    const int next = dup(0);
    close(next);
    deletefromURL_CACHESIZE();
    EXPECT_EQ(fcntl(next, F_GETFD) != -1, strict == 0);
  }
}

TEST(HostNotify, MessagesByteForByte) {
  const ScratchRoot root;
  const LogCapture log(1);
  sendURLToParent(1, "nobody/listens");
  const std::string zero(1, '\0'), big(1 << 20, 'u'); /* big: more than a socket takes in one write */
  std::vector<std::string> messages;
  {
    ScriptedDaemon host(root, "netsift.sock", [&](int fd) {
      messages.push_back(messages.size() < 3 ? readToEnd(fd) : ""); /* the fourth time it breaks off */
    });
    sendURLToParent(11, big.c_str()), addtoURL_CACHESIZE("host"), deletefromURL_CACHESIZE();
    addtoURL_CACHESIZE(big.c_str());
  }
  const std::string deletion = "DEL:" + std::string(12, '\0');
  EXPECT_EQ(messages, (std::vector{"URL:11 " + big + zero, "ADD:host" + zero, deletion, std::string()}));
  EXPECT_TRUE(log.has("error in sending command to parent"));
}
