#include "policy/popupIndex.h"

#include <gtest/gtest.h>

#include "tests/support/support.h"

namespace {

using std::string;

TEST(PopupIndex, FindsTheEndOfTheFirstHtmlTag) {
  const string texts[] = {"<html>",         "a<HTML lang>b<html>",
                          "<html >b<HTML>", "<html\n" + string(70000, ' ') + ">",
                          {"<html\0>", 7},  "",
                          "<html",          "<htmlx",
                          "<Html><hTML>",   {"\0<html>", 7}};
  const int expected[] = {6, 12, 7, 70007, 7, -1, -1, -1, -1, -1};
  for (size_t i = 0; i < std::size(texts); i++) {
    const string &text = texts[i];
    const netsift::test::GuardedText body(text, false);
    EXPECT_EQ(getPopUpIndex(body.get(), static_cast<int>(text.size())), expected[i]) << text.substr(0, 40);
  }
}

}  // namespace
