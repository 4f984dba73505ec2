#include "cache/hostNotify.h"

#include <gtest/gtest.h>

#include "state/settings.h"
#include "tests/support/scriptedDaemon.h"
#include "tests/support/support.h"

using namespace netsift::test;

namespace {

TEST(HostNotify, MessagesByteForByte) {
  ScratchRoot root;
  const std::string zero(1, '\0'), big(1 << 20, 'u');  // big: more than a socket takes in one write
  std::vector<std::string> messages;
  {
    ScriptedDaemon host(root.path() + "/opt/Velmora/var/run/netsift.sock",
                        [&](int fd) { messages.push_back(readToEnd(fd)); });
    sendURLToParent(2, "host/page");
    sendURLToParent(-1, nullptr);
    sendURLToParent(11, big.c_str());
    addtoURL_CACHESIZE("host/page");
    deletefromURL_CACHESIZE();
  }
  EXPECT_EQ(messages, (std::vector<std::string>{"URL:2 host/page" + zero, "URL:-1 " + zero, "URL:11 " + big + zero,
                                                "ADD:host/page" + zero, "DEL:" + std::string(12, '\0')}));
}

TEST(HostNotify, AHostThatDoesNotListenOrBreaksOff) {
  ScratchRoot root;
  LogCapture log(2);
  sendURLToParent(1, "host/page");
  EXPECT_TRUE(log.has("error connecting to UDS Socket in child No such file or directory"));
  EXPECT_EQ(log.messages().size(), 1u);

  ScriptedDaemon hasty(root.path() + "/opt/Velmora/var/run/netsift.sock", [](int) {});
  sendURLToParent(1, std::string(1 << 20, 'u').c_str());
  EXPECT_TRUE(log.has("error in sending command to parent"));
}

TEST(HostNotify, TextList) {
  TextNode *head = nullptr;
  EXPECT_EQ(compstrall("a", head), 0);
  char text[] = "first";
  EXPECT_EQ(append(&head, text), 1);
  text[0] = 'F';
  EXPECT_EQ(append(&head, "second"), 1);
  EXPECT_EQ(append(&head, ""), 1);
  EXPECT_EQ(append(&head, nullptr), 0);
  const struct {
    const char *text;
    int found;
  } cases[] = {{"first", 1}, {"second", 1}, {"", 1}, {"First", 0}, {"secon", 0}, {nullptr, 0}};
  for (const auto &c : cases) EXPECT_EQ(compstrall(c.text, head), c.found) << (c.text == nullptr ? "null" : c.text);
  testing::internal::CaptureStdout();
  display(head);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first\nsecond\n\n");
  delete_all_nodes(head);
}

}  // namespace
