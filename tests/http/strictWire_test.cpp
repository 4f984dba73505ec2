#include "http/strictWire.h"

#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;

TEST(StrictWire, anAnswerComesFirstUnlessItIsInterimOrTheClientGoesOn) {
  const std::tuple<const char *, const char *, bool> cases[] = {{"HTTP/1.1 200 OK", "", true},
                                                                {"HTTP/1.1 100 Co", "", false},
                                                                {"HTTP/1.1 200 OK", "more", false},
                                                                {"", "", false}};
  for (const auto &[answer, body, first] : cases) {
    const SocketPair upstream, client;
    upstream.send(answer);
    client.send(body);
    EXPECT_EQ(answersFirst(upstream.near, client.near, *answer == '\0' ? 0 : 5), first) << answer << body;
  }
}
