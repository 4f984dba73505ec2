#include "http/clientHello.h"

#include <array>

#include "tests/support/support.h"

namespace {

string number(size_t value, size_t bytes) {
  string text;
  while (bytes-- > 0) text += static_cast<char>(value >> (8 * bytes));
  return text;
}
string vector(const string &content, size_t lengthBytes) { return number(content.size(), lengthBytes) + content; }
string extension(size_t type, const string &content) { return number(type, 2) + vector(content, 2); }
string hostName(const string &name, size_t type = 0) { return number(type, 1) + vector(name, 2); }
string named(const string &list) { return extension(0, vector(list, 2)); }

constexpr char beforeLists[] = "\3\3ABCDEFGHIJKLMNOPQRSTUVWXYZ012345";
string body(const string &extensions, const string &session = "") {
  return beforeLists + vector(session, 1) + vector("\x13\x01", 2) + vector(string(1, '\0'), 1) + vector(extensions, 2);
}
string message(const string &content) { return "\1" + vector(content, 3); }
string record(const string &fragment) { return "\x16\x03\x01" + vector(fragment, 2); }
string records(const string &whole, size_t each) {
  string joined;
  for (size_t from = 0; from < whole.size(); from += each) joined += record(whole.substr(from, each));
  return joined;
}
string hello(const string &extensions) { return record(message(body(extensions))); }

/* What is read of bytes of which nothing is to be touched behind their end: the name, "-" for none, "bad", "more". */
string readHello(const string &bytes, size_t *needed = nullptr) {
  const GuardedText guarded(bytes, false);
  ClientHello found;
  const Parse parse = readClientHello({guarded.get(), bytes.size()}, found);
  if (needed != nullptr) *needed = found.needed;
  if (parse == Parse::more) return "more";
  return parse == Parse::bad ? "bad" : found.serverName.empty() ? "-" : found.serverName;
}

void expectHello(const string &expected, const std::vector<string> &all) {
  for (const string &bytes : all) EXPECT_EQ(readHello(bytes), expected) << testing::PrintToString(bytes);
}

const string name = named(hostName("a.example"));

}  // namespace

TEST(clientHello, theNameOfOneThatIsWholeAndNothingElse) {
  const string good = message(body(name)), padding = extension(21, string(100, '\0'));
  expectHello("a.example", {hello(name), hello(padding + name + padding) + "anything", records(good, 1),
                            records(good, 50), records(message(body(name + extension(21, string(16300, '\0')))), 16384),
                            record(message(body(name, string(32, 's'))))});
  expectHello("-", {hello(""), hello(padding),
                    record(message(body("").substr(0, body("").size() - 2))) /* of old, without extensions */});
  expectHello("bad", {record(message(body(name, string(33, 's')))), hello(name + name),
                      hello(named(hostName("a") + hostName("b"))), hello(named(hostName("a", 1))),
                      hello(named(hostName(""))), hello(named("")), hello(extension(0, "")),
                      hello(extension(0, vector(hostName("a"), 2) + "x")), hello(name + "x"),
                      record(message(body(name) + "x")), record(message(body(name).substr(0, body(name).size() - 1)))});
  expectHello("bad", {record("\1" + number(0, 3)), record("\2" + good.substr(1)) /* a ServerHello */,
                      record(good.substr(0, 9)) + "\x17\x03\x03" /* another record in between */,
                      record(good.substr(0, 9)) + record("") + record(good.substr(9)) /* an empty one */,
                      "\x16\x03\x01" + number(16385, 2),
                      record("\1" + number(mostHelloBytes, 3)) /* longer than is waited for */,
                      records(message(string(8000, 'x')), 1) /* with its headers */, "\x16\x02",
                      "GET / HTTP/1.1\r\n\r\n", "SSH-2.0-x\r\n", "\x80\x2e\x01\x03\x01" /* that of SSL 2 */});
  expectHello("more", {"", "\x16\x03\x01\x3f"});
  for (size_t at = 0; at < 4; at++) { /* the lengths before the extensions */
    string wrong = body(name);
    wrong[std::array{34, 35, 36, 39}[at]] ^= 0x40;
    EXPECT_EQ(readHello(record(message(wrong))), "bad") << at;
  }
}

TEST(clientHello, aPartTellsHowMuchMoreItTakes) {
  for (const size_t each : {1000, 7, 1}) {
    const string behind = each == 1000 ? "in the same record" : "";
    const string whole = records(message(body(name)) + behind, each);
    size_t needed = 1;
    while (needed < whole.size() - behind.size()) {
      const size_t before = needed;
      ASSERT_EQ(readHello(whole.substr(0, needed), &needed), "more");
      ASSERT_GT(needed, before);
      size_t same = 0;
      ASSERT_EQ(readHello(whole.substr(0, needed - 1), &same), "more");
      EXPECT_EQ(same, needed);
    }
    EXPECT_EQ(readHello(whole.substr(0, needed)), "a.example");
  }
}

TEST(clientHello, isWaitedForOnTheSocketAndLeftThere) {
  const string whole = records(message(body(name)), 30);
  const struct {
    string client, server;
    bool clientEnds, serverEnds;
    HelloRead expected;
  } cases[] = {
      {whole, "", true, false, HelloRead::done},
      {whole, "x", false, true, HelloRead::done},
      {whole.substr(0, 40), "", true, false, HelloRead::clientLeft},
      {"", "", true, false, HelloRead::clientLeft},
      {"", "220 hello\r\n", false, false, HelloRead::serverFirst},
      {whole.substr(0, 40), "", false, true, HelloRead::serverLeft},
      {whole.substr(0, 40), "", false, false, HelloRead::timedOut},
      {"EHLO x\r\n", "", false, false, HelloRead::notTls},
  };
  for (const auto &c : cases) {
    SocketPair client, upstream;
    client.send(c.client);
    upstream.send(c.server);
    if (c.clientEnds) shutdown(client.far, SHUT_WR);
    if (c.serverEnds) shutdown(upstream.far, SHUT_WR);
    ClientHello read;
    EXPECT_EQ(awaitClientHello(client.near, upstream.near, 1, read), c.expected) << c.client << c.server;
    string rest(c.client.size() + 1, '\0');
    EXPECT_EQ(recv(client.near, rest.data(), rest.size(), MSG_DONTWAIT) + (c.client.empty() ? c.clientEnds ? 0 : 1 : 0),
              static_cast<ssize_t>(c.client.size()));
  }
}
