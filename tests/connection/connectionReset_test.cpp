#include "connection/connectionReset.h"

#include <fcntl.h>

#include "log/debugLog.h"
#include "log/hostLog.h"
#include "policy/urlList.h"
#include "tests/support/support.h"

/* The variables themselves: tests/e2e/workers_test.py. */
TEST(Reset, EntriesThatALookUpTrimsAreAsLoaded) {
  const ScratchRoot root;
  writeFile(root.config("whitelist.url"), "");
  writeFile(root.config("whitelist.dom"), "10.1 \n");
  ASSERT_EQ(makeWhiteList(), 1);
  netsift_keepState();
  for (int connection = 0; connection < 2; connection++) {
    char host[] = "10.1.2.3";
    EXPECT_EQ(inWhiteList("x", host, 1), 0) << "an entry that had to be trimmed matches only its equal";
    EXPECT_EQ(inWhiteList("x", host, 1), 1) << "and is trimmed from then on";
    netsift_resetState(-1);
  }
  freeWhiteList();
}

TEST(Reset, DescriptorsFromTheGivenOneOnAreClosed) {
  const auto isOpen = [](int fd) { return fcntl(fd, F_GETFD) >= 0; };
  const int first = fcntl(0, F_DUPFD, 500), next = fcntl(0, F_DUPFD, 501), last = fcntl(0, F_DUPFD, 900);
  netsift_keepState();
  netsift_resetState(-1);
  EXPECT_TRUE(isOpen(first) && isOpen(next) && isOpen(last));
  netsift_resetState(first + 1);
  EXPECT_TRUE(isOpen(0) && isOpen(first) && !isOpen(next) && !isOpen(last));
  close(first);
}

TEST(Reset, TheLogsStampIsTheKeptOneAndAHostsTextStaysItsOwn) {
  const LogCapture log(1);
  dprintf(1, "before\n");
  netsift_keepState();
  const std::string stamp = errorcode;
  setDebugString("other");
  for (int i = 0; i < 3; i++) dprintf(1, "served\n");
  EXPECT_NE(errorcode, stamp);
  netsift_resetState(-1);
  EXPECT_EQ(errorcode, stamp);
  dprintf(1, "loading anew\n");
  netsift_keepState();
  EXPECT_EQ(std::string(errorcode).substr(0, 5), "other");
  char own[] = "the host's";
  errorcode = own;
  netsift_keepState();
  dprintf(1, "served\n");
  netsift_resetState(-1);
  EXPECT_EQ(errorcode, own);
  errorcode = nullptr;
}
