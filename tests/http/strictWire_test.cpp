#include "http/strictWire.h"

#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;

TEST(StrictWire, anAnswerComesFirstUnlessItIsInterimOrTheClientGoesOn) {
  const std::tuple<const char *, const char *, Word> cases[] = {{"HTTP/1.1 200 OK", "", Word::answer},
                                                                {"HTTP/1.1 100 Co", "", Word::interim},
                                                                {"HTTP/1.1 200 OK", "more", Word::client},
                                                                {"", "", Word::none}};
  for (const auto &[answer, body, first] : cases) {
    const SocketPair upstream, client;
    upstream.send(answer);
    client.send(body);
    EXPECT_EQ(awaitWord(upstream.near, client.near, *answer == '\0' ? 0 : 5000), first) << answer << body;
  }
}
