#include "host/notify.h"

#include <filesystem>

#include "host/clock.h"
#include "host/sockets.h"
#include "netsift.h"
#include "tests/support/scriptedDaemon.h"

using namespace netsift::host;
using std::string_literals::operator""s;

TEST(Notify, EachMessageDoesItsPartAndAnythingElseIsRefused) {
  const ScratchRoot root;
  char name[] = "sample", *names[] = {name}, *phraseNames[] = {name};
  categfiles = names;
  categfiles1 = phraseNames;
  numcategories = numcategories1 = 1;
  for (const char *file : {"sample.url", "sample.dom", "sample.url.orig"}) writeFile(root.config(file), "");
  ASSERT_EQ(makeBlackLists(), 1);
  const std::pair<std::string, const char *> cases[] = {
      {"URL:0 bad.example/page\0and more"s, ""},
      {"URL:1 bad.example/other\0"s, "a URL report for category 1, which is none"},
      {"URL:99999999999 bad.example/\0"s, "a URL report without a category"},
      {"URL:0 bad.example/cut", "a URL report without a whole URL"},
      {"URL:0 \0"s, "a URL report without a whole URL"},
      {"URL:0 bad.example/\n*\0"s, "a URL report with control bytes in the URL"},
      {"URL:0 bad.example/*\0"s, "a URL report with a \"*\", which a list takes for a pattern"},
      {"ADD:cut", "a text to add that is not whole"},
      {"ADD:first\0"s, ""},
      {"ADD:second\0"s, ""},
      {"DEL:\0"s + std::string(11, '\0'), ""},
      {"UR", "what is no message"}};
  for (const auto &[message, fault] : cases) EXPECT_EQ(handleMessage(message), fault) << message;
  EXPECT_EQ(readFile(root.config("sample.reported.url.orig")), "bad.example/page\n");
  EXPECT_EQ(readFile(root.config("sample.url.orig")), "") << "the administrator's own";
  EXPECT_TRUE(categfiles[0] == name && categfiles1[0] == name);
  char url[] = "bad.example/page", host[] = "bad.example";
  EXPECT_EQ(inBlackLists(url, host, 0), 1) << "connections from now on find it";
  EXPECT_TRUE(compstrall("second", URL_CACHE) == 1 && URL_CACHESIZE == 1);
  EXPECT_EQ(handleMessage("DEL:") + handleMessage("DEL:"), "");
  EXPECT_TRUE(URL_CACHE == nullptr && URL_CACHESIZE == 0) << "an empty list stays empty";
  writeFile(root.config("sample.reported.url.orig"), std::string((1 << 20) - 10, 'x'));
  EXPECT_TRUE(handleMessage("URL:0 another.example\0"s).ends_with("is full; move what is to stay from it to the list"));
  freeBlackLists();
}

TEST(Notify, APeerIsBoundedInSizeAndTimeAndNeverWaitedFor) {
  const ScratchRoot root;
  const std::string path = root.path() + "/s";
  const int listener = listenLocal(path);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0660));

  const int silent = connectLocal(path), wordy = connectLocal(path), sender = connectLocal(path);
  Messages messages;
  acceptMessages(listener, messages);
  ASSERT_EQ(messages.size(), 3u);
  say(wordy, std::string(largestMessage + 1, 'x'));
  say(sender, "ADD:te");
  EXPECT_TRUE(!readMessage(messages[0]) && readMessage(messages[1]) && !readMessage(messages[2]));
  say(sender, {"xt", 3});
  EXPECT_FALSE(readMessage(messages[2])) << "whole only when it is closed";
  close(sender);
  EXPECT_TRUE(readMessage(messages[2]));
  EXPECT_EQ(compstrall("text", URL_CACHE), 1);
  delete_all_nodes(URL_CACHE);
  messages.resize(1);
  dropLateMessages(messages, milliseconds());
  EXPECT_EQ(messages.size(), 1u);
  dropLateMessages(messages, milliseconds() + messageMilliseconds);
  EXPECT_EQ(messages.size(), 0u);
  EXPECT_EQ(readToEnd(silent), "") << "its connection is closed";

  for (size_t i = 0; i < mostMessages + 1; i++) connectLocal(path);
  acceptMessages(listener, messages);
  EXPECT_EQ(messages.size(), mostMessages);
  EXPECT_EQ(listenLocal(path), -1) << "somebody listens there";
  listen(listener, 0);
  while (connectLocal(path) >= 0) continue;
  EXPECT_TRUE(listenLocal(path) == -1 && errno == EADDRINUSE) << "also when it takes nobody";
}
