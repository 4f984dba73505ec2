"""Through an upstream proxy, with StrictHttp = 0: the behaviour that hosts of old rely on."""
from harness import Case, Filter, Nginx, Squid, read_head
from roads import Roads

CONTRACT = {"http.strict_http": False}


class Upstream(Roads, Case):
    host = "origin.test"

    @classmethod
    def setUpClass(cls):
        cls.squid = Squid(cls.addClassCleanup)
        cls.settings = CONTRACT | {"upstream.proxy": f"127.0.0.1:{cls.squid.port}"}
        super().setUpClass()


class Contract(Case):
    """Where StrictHttp = 0 and = 1 differ, direct mode and one scripted upstream."""

    def through(self, handler, request, **settings):
        peer = self.peer(handler)
        self.filtering = self.filter(CONTRACT | {"upstream.proxy": f"127.0.0.1:{peer.port}"} | settings)
        return self.filtering.exchange(request, end=True)

    def test_direct_mode(self):
        origin = Nginx(self.addCleanup)
        origin.put("index.html", b"<p>start\n")
        filtering = self.filter(CONTRACT)
        port, tls = origin.port, origin.tls_port
        for request, expected in (
                (f"GET http://localhost:{port}/index.html HTTP/1.1\r\nHost: localhost:{port}\r\n\r\n", None),
                (f"GET http://localhost:{port}/index.html HTTP/1.1\r\nHost: localhost\r\n\r\n", b"start"),
                (f"CONNECT localhost:{tls} HTTP/1.1\r\nHost: localhost\r\n\r\n", b"400 Bad Request"),
                ("GARBAGE\r\n\r\n", None),
                ("GET /x\r\nHost: localhost\r\n\r\n", None),
                ("GET / HTTP/1.1\r\n\r\n", None),
                ("A" * 15 + " http://localhost/ HTTP/1.1\r\nHost: localhost\r\n\r\n", None)):
            with self.subTest(request):
                answer = filtering.exchange(request.encode(), end=True)
                self.assertIn(expected, answer) if expected else self.assertEqual(answer, b"")

    def test_an_origin_form_loses_its_last_character(self):
        filtering = self.filter(CONTRACT, files={"sample.url.orig": "localhost/index.htm\nlocalhost/%00\n"})
        for target, blocked in (("/index.html", True), ("/index.htm", False), ("http://localhost/index.htm", True)):
            with self.subTest(target):
                answer = filtering.exchange(f"GET {target} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode(), end=True)
                self.assertEqual(b"Black Listed" in answer, blocked)

    def test_an_ad_is_answered_without_an_empty_line(self):
        answer = self.through(read_head, b"GET http://ads.example/ HTTP/1.1\r\nHost: ads.example\r\n\r\n")
        self.assertEqual(answer, b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nPragma: no-cache\r\n"
                                 b"Content-Length: 0\r\n")
        self.assertEqual(self.filtering.results(),
                         ["Client IP:127.0.0.1,URL:ads.example,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER"])

    def test_an_error_answer_is_cut_after_one_read(self):
        def long_error(upstream):
            read_head(upstream)
            upstream.sendall(b"HTTP/1.0 404 Not Found\r\nContent-Length: 20000\r\n\r\n" + b"x" * 20000)
            upstream.recv(1)

        answer = self.through(long_error, b"GET http://h.test/ HTTP/1.1\r\nHost: h.test\r\n\r\n")
        body = answer.partition(b"\r\n\r\n")[2]
        self.assertTrue(0 < len(body) <= 8192, len(body))

    def test_a_chunked_answer_is_not_delivered(self):
        def chunked(upstream):
            read_head(upstream)
            upstream.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n")

        self.assertEqual(self.through(chunked, b"GET http://h.test/ HTTP/1.1\r\nHost: h.test\r\n\r\n"), b"")

    def test_an_answer_that_ends_with_its_connection(self):
        def unsized(upstream):
            read_head(upstream)
            upstream.sendall(b"HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\n" + b"y" * 70000)

        answer = self.through(unsized, b"GET http://h.test/ HTTP/1.1\r\nHost: h.test\r\n\r\n")
        self.assertEqual(answer.partition(b"\r\n\r\n")[2], b"y" * 70000)

    def test_the_head_that_goes_upstream(self):
        heads = []

        def remember(upstream):
            heads.append(read_head(upstream))
            upstream.sendall(b"HTTP/1.0 204 No Content\r\nContent-Length:0\r\nConnection: close\r\n\r\n")
            upstream.recv(1)

        self.through(remember, b"GET http://h.test/a HTTP/1.1\r\nHost: h.test\r\nAccept-Encoding: gzip, br\r\n"
                     b"Proxy-Connection: keep-alive\r\nX-Other: kept\r\n\r\n", **{"http.keep_alive": False})
        self.assertEqual(heads, [b"GET http://h.test/a HTTP/1.0\r\nHost: h.test\r\nAccept-Encoding: identity\r\n"
                                 b"Proxy-Connection: Close\r\nX-Other: kept\r\n\r\n"])
