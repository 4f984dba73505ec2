"""Direct to each site, as shipped."""
from harness import Case, free_port
from roads import Roads


class Direct(Roads, Case):
    settings = {}
    host = "localhost"

    def test_hosts_that_cannot_be_reached(self):
        for url, reason in (("http://no-such-host.invalid/", "no-such-host.invalid could not be found"),
                            (f"http://localhost:{free_port()}/", "No connection to localhost")):
            with self.subTest(url):
                self.assert_page(self.filtering.fetch(url), "error", reason)

    def test_the_origin_sees_an_origin_form(self):
        self.origin.put("form.txt", b"text\n")
        self.filtering.fetch(f"{self.base}/form.txt", "-H", "Proxy-Authorization: Basic bm86bm8=")
        self.assertRegex(self.origin.seen("/form.txt"), rf"^GET /form.txt HTTP/1.0\|localhost:{self.origin.port}\|-\|")

    def test_requests_that_cannot_be_read(self):
        for request in (b"GARBAGE\r\n\r\n", b"GET /x\r\nHost: localhost\r\n\r\n", b"GET / HTTP/1.1\r\n\r\n",
                        b"A" * 15 + b" http://localhost/ HTTP/1.1\r\nHost: localhost\r\n\r\n",
                        b"GET http:// HTTP/1.1\r\nHost:\r\n\r\n"):
            with self.subTest(request):
                self.assert_page(self.filtering.exchange(request), "error", "The browser")

    def test_an_ad_is_answered_with_a_whole_empty_answer(self):
        self.assertEqual(self.filtering.exchange(b"GET http://ads.example/ HTTP/1.1\r\nHost: ads.example\r\n\r\n")
                         .partition(b"\r\n\r\n")[2], b"")
        self.assertEqual(self.filtering.fetch("http://ads.example/").body, b"")
