#include "http/strictTarget.h"

#include "tests/http/strictHeads.h"

using namespace netsift;
using namespace netsift::test;
using std::string;

namespace {

/* Scheme, host, port and URL, or the fault's status. */
string read(const string &lines) {
  const ScannedHead head(lines);
  StrictTarget target;
  const StrictFault fault = parseStrictTarget(head.header.first, target);
  if (fault.status != 0) return std::to_string(fault.status);
  return target.scheme + " " + target.host + " " + std::to_string(target.port) + " " + strictUrl(target) +
         (target.keepAlive ? " keep" : "");
}

}  // namespace

TEST(StrictTarget, ReadsWhatIsAddressed) {
  EXPECT_EQ(read("GET /a/?q#f HTTP/1.1\r\nHost: H.Example.:81"), "http h.example 81 h.example/a/?q keep");
  EXPECT_EQ(read("GET / HTTP/1.0\r\nHost: h:"), "http h 80 h");
  EXPECT_EQ(read("GET HTTPS://H HTTP/1.0\r\nConnection: keep-alive"), "https h 443 h keep");
  EXPECT_EQ(read("GET http://a:65535?x HTTP/1.1\r\nHost: b"), "http a 65535 a?x keep");
  EXPECT_EQ(read("GET http://[::1]:8/%41%2f%00%4 HTTP/1.2\r\nHost: b\r\nConnection: CLOSE"),
            "http [::1] 8 [::1]/A/%00%4");
  EXPECT_EQ(read("GET /\xC3\xA4 HTTP/1.1\r\nHost: 0x7F.1"), "http 127.0.0.1 80 127.0.0.1/\xC3\xA4 keep");
  EXPECT_EQ(read("CONNECT h.:8443 HTTP/1.1\r\nHost: other"), "http h 8443 h keep");
  EXPECT_EQ(read("CONNECT h HTTP/1.0"), "http h 443 h");
  const string path(498, 'a');
  EXPECT_EQ(read("GET /" + path + "/ HTTP/1.0\r\nHost: h"), "http h 80 h/" + path);
  EXPECT_EQ(read("GET /" + path + "b/ HTTP/1.0\r\nHost: h"), "http h 80 h/" + path + "...");
}

TEST(StrictTarget, RefusesWhatNamesNoHostOrSeveral) {
  for (const char *lines : {"GET / HTTP/1.1", "GET / HTTP/1.1\r\nHost:", "GET http://h/ HTTP/1.1", "GET / HTTP/1.0",
                            "GET / HTTP/1.1\r\nHost: h\r\nhost: h", "GET / HTTP/1.1\r\nHost: a b",
                            "GET http://h/ HTTP/1.1\r\nHost: u:p@h"}) {
    EXPECT_EQ(read(lines), "400") << lines;
  }
  for (const char *line :
       {"GET http://u@h/", "GET http://h:0/", "GET http://h:65536/", "GET http://h:4294967376/", "GET http://h:+80/",
        "GET http:///", "GET ://h/", "GET h/x", "GET http://h%2e/", "GET http://[::1/", "GET http://[::1]x/",
        "GET http://h\\x/", "CONNECT h:443/x", "CONNECT h:https", "GET *"}) {
    EXPECT_EQ(read(line + string(" HTTP/1.1\r\nHost: h")), "400") << line;
  }
}
