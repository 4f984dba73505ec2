#include "policy/accessLog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>

#include "state/connection.h"
#include "state/settings.h"
#include "tests/support/support.h"

namespace {

TEST(AccessLog, AppendsOneLineOfFiveFields) {
  const netsift::test::ScratchRoot root;
  char name[] = "access";
  std::string longUrl = "a.com/\"\n" + std::string(100000, 'u');
  logfilename = name;
  strcpy(clientip, "10.1.2.3");
  storeLog("A", "B", 1);
  EXPECT_EQ(netsift::test::readFile(root.log(name)), "");
  logenable = 1;
  storeLog("IP Blocking", nullptr, 0);
  url = longUrl.data();
  storeLog("Virus", "Infected Content", 0);
  const std::string text = netsift::test::readFile(root.log(name)), first = text.substr(0, text.find('\n'));
  const std::regex form(R"("\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}" "10\.1\.2\.3" "" "IP Blocking" "")");
  EXPECT_TRUE(std::regex_match(first, form)) << first;
  EXPECT_EQ(text.substr(first.size() + 27), " \"10.1.2.3\" \"" + longUrl + "\" \"Virus\" \"Infected Content\"\n");
}

}  // namespace
