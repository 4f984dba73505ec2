"""Peers that stall, break off or are not there, and what hosts of old rely on with StrictHttp = 0."""
import random
import socket
import struct

from harness import Case, Nginx, free_port, read_head, wait_until

OK = b"HTTP/1.0 200 OK\r\n"
HALF = OK + b"Content-Length: 100000\r\n\r\n" + b"x" * 70000
CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n"
GET = b"GET http://h.test/ HTTP/1.1\r\nHost: h.test\r\nAccept-Encoding: br\r\nProxy-Connection: keep-alive\r\n\r\n"
SEEN = b"GET http://h.test/ HTTP/1.0\r\nHost: h.test\r\nAccept-Encoding: identity\r\nProxy-Connection: Close\r\n\r\n"
TIMEOUT = b"(?s)could not be loaded.*Timeout while getting response from server."


class Faults(Case):
    settings = {"http.strict_http": False, "upstream.timeout": 1, "http.keep_alive": False}

    def test_what_upstream_says(self):
        def answer(upstream):
            self.assertEqual(read_head(upstream), SEEN)
            upstream.sendall(said)
            if stalls:
                upstream.recv(1)

        filtering = self.filter({"upstream.proxy": f"127.0.0.1:{self.peer(answer).port}"})
        for said, stalls, expected, line in (
                (b"", True, TIMEOUT, "Timeout while getting response header from proxy."),
                (OK + b"Serv", False, TIMEOUT, ""),
                (HALF, True, rb"\r\n\r\nx{65536}\Z", "Error 2 while recieving http body"),
                (HALF, False, rb"\r\n\r\nx{70000}\Z", ""),
                (HALF.replace(b"200 OK", b"404 Not Found"), True, rb"\r\n\r\nx{1,8192}\Z", ""),  # cut after one read
                (OK + b"Connection: close\r\n\r\n" + b"y" * 70000, False, rb"\r\n\r\ny{70000}\Z", ""),
                (CHUNKED, False, rb"\A\Z", "")):
            with self.subTest(said[:80], stalls=stalls):
                self.assertRegex(filtering.exchange(GET), expected)
                self.assertIn(line, filtering.lines())

    def test_a_page_of_unknown_length_that_breaks_off_does_not_look_whole(self):
        proxy = self.peer(lambda upstream: read_head(upstream) and upstream.sendall(CHUNKED[:-5])).port
        filtering = self.filter({"http.strict_http": True, "upstream.proxy": f"127.0.0.1:{proxy}"})
        for version, failure in (("--http1.0", "reset by peer"), ("--http1.1", "outstanding read data")):
            self.assertRaisesRegex(AssertionError, failure, filtering.fetch, "http://h.test/", version)
            self.assertEqual((filtering.root / "body").read_bytes(), b"hello")

    def test_the_cause_of_a_proxy_that_is_down_is_named(self):
        filtering = self.filter({"http.strict_http": True, "upstream.proxy": f"127.0.0.1:{free_port()}"})
        reason = "The upstream proxy cannot be reached: Connection refused."
        self.assert_page(filtering.fetch("http://h.test/"), "error", reason)

    def test_no_upstream_where_one_is_needed(self):
        origin = Nginx(self.addCleanup)
        origin.put("start.html", b"<p>start\n")
        filtering = self.filter(files={"sample.url.orig": "localhost/index.htm\n"})
        for line, host, expected in (
                (f"GET http://localhost:{origin.port}/start.html", f"localhost:{origin.port}", rb"\A\Z"),
                (f"GET http://localhost:{origin.port}/start.html", "localhost", b"<p>start"),
                (f"CONNECT localhost:{origin.tls_port}", "localhost", b"400 Bad Request"),
                ("GET /index.html", "localhost", b"Black Listed URL"),  # an origin form loses its last character
                ("GET http://localhost/index.htm", "localhost", b"Black Listed URL")):
            with self.subTest(line):
                answer = filtering.exchange(f"{line} HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())
                self.assertRegex(answer, expected)

    def test_clients_that_go(self):
        page = random.Random(3).randbytes(5_000_000)
        head = OK + b"Connection: close\r\nContent-Length: 5000000\r\n\r\n"
        url = f"http://localhost:{self.peer(lambda asked: read_head(asked) and asked.sendall(head + page)).port}/"
        for strict in (False, True):
            filtering = self.filter({"http.strict_http": strict})
            for begin in (b"", b"GET / HT", b"GET http://h.test/ HTTP/1.1\r\nHost: h.te"):
                self.assertEqual(filtering.exchange(begin), b"", begin)
            with filtering.connect() as client:
                client.sendall(f"GET {url} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
                client.recv(1000)
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))  # close with a reset
            said = "The response did not reach its client." if strict else "error in writing to socket in sendToSocket."
            wait_until(lambda: said in filtering.lines(), said)
            self.assertEqual(filtering.fetch(url, "-H", "Host: localhost").body, page)
