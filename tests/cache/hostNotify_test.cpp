#include "cache/hostNotify.h"

#include <gtest/gtest.h>

#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

using namespace netsift::test;

TEST(HostNotify, MessagesByteForByteAndTheList) {
  const ScratchRoot root;
  const LogCapture log(1);
  sendURLToParent(1, "host/page");
  EXPECT_TRUE(log.has("error connecting to UDS Socket in child No such file or directory"));

  const std::string zero(1, '\0'), big(1 << 20, 'u');  // big: more than a socket takes in one write
  std::vector<std::string> messages;
  {
    ScriptedDaemon host(root.path() + "/opt/Velmora/var/run/netsift.sock", [&](int fd) {
      messages.push_back(messages.size() < 3 ? readToEnd(fd) : "");  // the fourth time it breaks off
    });
    sendURLToParent(11, big.c_str()), addtoURL_CACHESIZE("host"), deletefromURL_CACHESIZE();
    addtoURL_CACHESIZE(big.c_str());
  }
  const std::string deletion = "DEL:" + std::string(12, '\0');
  EXPECT_EQ(messages, (std::vector{"URL:11 " + big + zero, "ADD:host" + zero, deletion, std::string()}));
  EXPECT_TRUE(log.has("error in sending command to parent"));

  TextNode *head = nullptr;
  for (const char *text : {"first", "second"}) EXPECT_EQ(append(&head, text) - compstrall(text, nullptr), 1);
  EXPECT_EQ(compstrall("second", head) - compstrall("secon", head), 1);
  testing::internal::CaptureStdout();
  display(head), delete_all_nodes(head);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first\nsecond\n");
}
