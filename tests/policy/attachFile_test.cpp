#include "policy/attachFile.h"

#include <gtest/gtest.h>

#include <cstring>

#include "state/connection.h"
#include "state/settings.h"
#include "tests/support/support.h"

namespace {

using std::string;

TEST(AttachFile, ChecksTheUploadWhiteList) {
  strcpy(uploadwhitelist[0], "b.com/up");
  strcpy(uploadwhitelist[1], "www.a.com");
  strcpy(uploadwhitelist[3], "behind.the.end");
  for (const char *url : {"www.a.com/x", "a.com", "x.b.com/upload"}) EXPECT_EQ(checkUrl(url), 1) << url;
  for (const char *url : {"B.com/up", "a.co", "behind.the.end", ""}) EXPECT_EQ(checkUrl(url), 0) << url;
  memset(uploadwhitelist, 'x', sizeof uploadwhitelist); /* no entry is empty or ends */
  EXPECT_EQ(checkUrl(string(100, 'x').c_str()), 1);
  EXPECT_EQ(checkUrl(string(99, 'x').c_str()), 0);
}

/* `forwarded`: the bytes that the caller sends then; empty for the whole body as it was. */
void expectCut(const string &piece, int cut, const string &forwarded = "") {
  const netsift::test::GuardedText body(piece, false);
  EXPECT_EQ(blockAttachment(static_cast<int>(piece.size()), body.get()), cut) << piece;
  EXPECT_EQ(string(body.get(), piece.size() - static_cast<size_t>(cut)), forwarded.empty() ? piece : forwarded);
}

TEST(AttachFile, EmptiesTheFileNameWithinThePiece) {
  const string part = "--b\r\nContent-Disposition: form-data; name=\"f\"; ", name = part + "filename=\"";
  const string nul(1, '\0'), rest = "\r\n\r\n" + nul + "\xff\"x";
  for (const string &whole : {string("Content-Disposition: form-data"), part, part + "filename=", name,
                              name + "\"" + rest, name + "a\"\r\n" + name + "\""}) {
    expectCut(whole, 0);
  }
  expectCut(name + "a\"" + rest, 0, name + "\"" + rest + nul);
  expectCut(name + "abc.txt\"" + rest, 6, name + "\"" + rest + nul);
  expectCut(nul + name + "abc\"\r\nContent-Type: t/x" + rest, 2 + 17, nul + name + "\"\r\n" + rest + nul);
  expectCut(name + "abc\"\r\nContent-Type: t", 2 + 15, name + "\"\r\n" + nul);
  expectCut(name + "abc", 2, name + "\"");
  EXPECT_EQ(blockAttachment(0, nullptr), 0);
  EXPECT_STREQ(reason, "Attachments are not allowed to this server");
}

}  // namespace
