#include "log/accessLog.h"

#include "tests/support/support.h"

TEST(AccessLog, AppendsOneLineOfFiveFields) {
  const netsift::test::ScratchRoot root;
  std::string name = "access", longUrl = "a.com/\"\n" + std::string(100000, 'u');
  logfilename = name.data();
  strcpy(clientip, "10.1.2.3");
  storeLog("A", "B", 1); /* the log is off */
  logenable = 1;
  storeLog("IP Blocking", nullptr, 0);
  url = longUrl.data();
  storeLog("Virus", "Infected Content", 0);
  const std::string text = netsift::test::readFile(root.log(name)), first = text.substr(0, text.find('\n'));
  EXPECT_EQ(first.substr(26), " \"10.1.2.3\" \"\" \"IP Blocking\" \"\"") << "behind 24 bytes of time in quotes";
  EXPECT_EQ(text.substr(first.size() + 27), " \"10.1.2.3\" \"" + longUrl + "\" \"Virus\" \"Infected Content\"\n");
}
