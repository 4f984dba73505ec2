"""Peers that stall, lie, break off or are not there."""
import random
import socket
import struct

from harness import Case, Nginx, free_port, read_head, wait_until

GET = b"GET http://h.test/ HTTP/1.1\r\nHost: h.test\r\n\r\n"


class Faults(Case):
    settings = {"http.strict_http": False, "upstream.timeout": 1}

    def through(self, handler):
        peer = self.peer(handler)
        return self.filter(self.settings | {"upstream.proxy": f"127.0.0.1:{peer.port}"})

    def test_upstream_is_down(self):
        filtering = self.filter(self.settings | {"upstream.proxy": f"127.0.0.1:{free_port()}"})
        for url in ("http://h.test/", "http://blocked.example/"):
            self.assert_page(filtering.fetch(url), "error", "Proxy Server Not Running")

    def test_upstream_says_nothing(self):
        for silence in (lambda upstream: upstream.recv(1000) and upstream.recv(1),
                        lambda upstream: read_head(upstream) and upstream.sendall(b"HTTP/1.0 200 OK\r\nServ") or None):
            filtering = self.through(silence)
            self.assert_page(filtering.fetch("http://h.test/"), "error", "Timeout while getting response from server.")
            self.assertIn("Timeout while getting response header from proxy.", filtering.lines())

    def test_upstream_stalls_in_the_body(self):
        def stall(upstream):
            read_head(upstream)
            upstream.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: 100000\r\n\r\n" + b"x" * 70000)
            upstream.recv(1)

        filtering = self.through(stall)
        self.assertEqual(filtering.exchange(GET, end=True).partition(b"\r\n\r\n")[2], b"x" * 65536)
        self.assertIn("Error 2 while recieving http body", filtering.lines())

    def test_upstream_breaks_off_in_the_body(self):
        def break_off(upstream):
            read_head(upstream)
            upstream.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: 100000\r\n\r\n" + b"x" * 70000)

        answer = self.through(break_off).exchange(GET, end=True)
        self.assertEqual(answer.partition(b"\r\n\r\n")[2], b"x" * 70000)

    def test_a_client_that_goes_in_mid_body(self):
        origin = Nginx(self.addCleanup)
        page = origin.put("large.bin", random.Random(3).randbytes(5_000_000))
        filtering = self.filter()
        for _ in range(3):
            with filtering.connect() as client:
                client.sendall(f"GET http://localhost:{origin.port}/large.bin HTTP/1.1\r\n"
                               f"Host: localhost:{origin.port}\r\n\r\n".encode())
                client.recv(1000)
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))  # close with a reset
        filtering.wait_for_line("error in writing to socket in sendToSocket")
        wait_until(lambda: not filtering.connections(), "the connections' processes to end")
        self.assertEqual(filtering.fetch(f"http://localhost:{origin.port}/large.bin").body, page)

    def test_a_client_that_sends_nothing_or_half(self):
        filtering = self.filter()
        for start in (b"", b"GET / HT", b"GET http://h.test/ HTTP/1.1\r\nHost: h.te"):
            self.assertEqual(filtering.exchange(start, end=True), b"", start)
        wait_until(lambda: not filtering.connections(), "the connections' processes to end")
