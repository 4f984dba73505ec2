#include "util/socketAddress.h"

#include "tests/support/support.h"

TEST(SocketAddress, TextIsReadInEveryFormAndWrittenInOne) {
  const std::pair<std::string, const char *> cases[] = {{"127.0.0.1:8080", "127.0.0.1:8080"},
                                                        {"[2001:DB8:0:0::1]:65535", "[2001:db8::1]:65535"},
                                                        {"[::]:0", "[::]:0"},
                                                        {"[::ffff:10.0.0.7]:80", "10.0.0.7:80"},
                                                        {"[::fffe:10.0.0.7]:80", "[::fffe:a00:7]:80"}};
  SocketAddress address;
  for (const auto &[text, expected] : cases) {
    EXPECT_EQ(parseEndpoint(text, &address) ? endpointText(address) : "-", expected) << text;
  }
  for (const std::string &text :
       std::vector<std::string>{"[127.0.0.1]:80", "::1:80", "[::1]", "[::1]80", "[]:80", "[:80", ":80",
                                "[::1]:", "1.2.3.4:65536", "1.2.3.4:-1", "1.2.3.4:80 ", "1.2.3:80", "[fe80::1%lo]:80",
                                std::string("1.2.3.4\0:80", 11), std::string("[::1\0]:80", 9), "localhost:80"})
    EXPECT_FALSE(parseEndpoint(text, &address)) << text;
}
