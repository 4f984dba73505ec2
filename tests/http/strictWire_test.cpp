#include "http/strictWire.h"

#include <fcntl.h>

#include "http/strictRelay.h"
#include "tests/support/scriptedDaemon.h"

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

/* Of a body of so many bytes: what comes, whether the client takes it, and what becomes of it. */
TEST(RelayBody, goesOnWholeOrSaysWhyNot) {
  constexpr size_t whole = 3'000'000;
  enum class Client { reads, isSilent, isGone };
  const std::tuple<size_t, bool, Client, BodyRead> cases[] = {
      {whole + 5, false, Client::reads, BodyRead::end},      {whole - 1, true, Client::reads, BodyRead::broken},
      {whole - 1, false, Client::reads, BodyRead::timedOut}, {whole, false, Client::isSilent, BodyRead::clientLeft},
      {whole, false, Client::isGone, BodyRead::clientLeft},
  };
  std::string text(whole + 5, 'x');
  for (size_t i = 0; i < text.size(); i += 1 + i % 7) text[i] = static_cast<char>(i);
  for (const auto &[comes, closes, reader, expected] : cases) {
    SCOPED_TRACE(testing::Message() << comes << " " << static_cast<int>(expected));
    SocketPair upstream(AF_INET), client(AF_INET);
    const int small = 65536;
    setsockopt(client.near, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    if (reader == Client::isGone) client.closeFar();
    std::string received;
    std::thread origin([&, length = comes, ends = closes] {
      sendWhole(upstream.far, {text.data(), length}, 5);
      if (ends) upstream.closeFar();
    });
    std::thread taker([&, reads = reader == Client::reads] {
      if (reads) received = readToEnd(client.far);
    });
    BodySource source{.kind = BodyKind::length, .remaining = whole};
    uint64_t sent = 0;
    EXPECT_EQ(relayBody(upstream.near, source, client.near, 500, reader == Client::isSilent ? 0 : 5, sent), expected);
    EXPECT_EQ(source.ended, expected == BodyRead::end);
    shutdown(client.near, SHUT_WR);
    taker.join();
    if (reader == Client::reads) {
      EXPECT_TRUE(sent == std::min(comes, whole) && received == text.substr(0, sent));
    }
    if (source.ended) { /* what follows stays for who reads next */
      char next[9];
      EXPECT_EQ(recv(upstream.near, next, sizeof next, 0), 5);
    }
    breakOff(upstream.near, 0);
    origin.join();
  }
  const SocketPair client;
  const int unreadable = open("/dev/null", O_WRONLY);
  BodySource source{.kind = BodyKind::length, .remaining = whole};
  uint64_t sent = 0;
  EXPECT_EQ(relayBody(unreadable, source, client.near, 0, 0, sent), BodyRead::piece);
  close(unreadable);
}
