#include "policy/attachFile.h"
#include "policy/popupIndex.h"
#include "tests/support/support.h"

TEST(PopupIndex, FindsTheEndOfTheFirstHtmlTag) {
  const std::pair<string, int> cases[] = {{"a<HTML lang>b<html>", 12},
                                          {"<html\n" + string(70000, ' ') + ">", 70007},
                                          {{"<html\0>", 7}, 7},
                                          {{"\0<html>", 7}, -1},
                                          {"<html", -1},
                                          {"", -1},
                                          {"<Html><hTML>", -1}};
  for (const auto &[text, index] : cases) {
    const GuardedText body(text, false);
    EXPECT_EQ(getPopUpIndex(body.get(), static_cast<int>(text.size())), index) << text.substr(0, 40);
  }
}

TEST(AttachFile, ChecksTheUploadWhiteList) {
  strcpy(uploadwhitelist[0], "b.com/up");
  strcpy(uploadwhitelist[1], "www.a.com");
  strcpy(uploadwhitelist[3], "behind.the.end");
  for (const char *url : {"a.com", "x.b.com/upload"}) EXPECT_EQ(checkUrl(url), 1) << url;
  for (const char *url : {"B.com/up", "behind.the.end", ""}) EXPECT_EQ(checkUrl(url), 0) << url;
  memset(uploadwhitelist, 'x', sizeof uploadwhitelist); /* no entry is empty or ends */
  for (size_t size : {99, 100}) EXPECT_EQ(checkUrl(string(size, 'x').c_str()), size == 100);
}

TEST(AttachFile, EmptiesTheFileNameWithinThePiece) {
  const string part = "--b\r\nContent-Disposition: form-data; name=\"f\"; ", name = part + "filename=\"";
  const string nul(1, '\0'), rest = "\r\n\r\n" + nul + "\xff\"x", two = name + "a\"\r\n" + name + "\"";
  const struct {
    string piece;
    int cut;
    string forwarded; /* the bytes that the caller sends then */
    bool strict = false;
  } cases[] = {{part + "filename=", 0, part + "filename="},
               {name, 0, name},
               {name + "\"" + rest, 0, name + "\"" + rest},
               {two, 0, two},
               {name + "abc.txt\"" + rest, 6, name + "\"" + rest + nul},
               {nul + name + "abc\"\r\nContent-Type: t/x" + rest, 2 + 17, nul + name + "\"\r\n" + rest + nul, true},
               {nul + name + "abc\"", 0, nul + name + "abc\""},
               {name + "a" + nul + "b\"\r\nContent-Type: t\r" + nul + two, 2 + 15, name + "\"\r\n\r" + nul + two + nul},
               {name + "abc\"" + nul + "Content-Type: t", 2, name + "\"" + nul + "Content-Type: t" + nul},
               {name + "a\"" + nul + two, 0, name + "a\"" + nul + two, true},
               {name + "abc\"\r\nContent-Type: t", 2 + 15, name + "\"\r\n" + nul},
               {name + "abc", 2, name + "\""}};
  for (const auto &[piece, cut, forwarded, strict] : cases) {
    const GuardedText body(piece, false);
    StrictHttp = strict ? 1 : 0;
    EXPECT_EQ(blockAttachment(static_cast<int>(piece.size()), body.get()), cut) << piece;
    EXPECT_EQ(string(body.get(), piece.size() - static_cast<size_t>(cut)), forwarded) << piece;
  }
}
