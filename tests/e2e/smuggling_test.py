"""Messages that two readers may cut differently. Whatever a client or a site does to the framing, the next request on
the connection is refused or gets its own answer, and bytes that are no message of their own are never served as one."""
import contextlib
import re
import time

from exchanges import read_chunks
from harness import Case, Squid, wait_until

PRIZE = "GET /smuggled HTTP/1.1\r\nHost: localhost\r\n\r\n"
CHUNKS = f"0\r\n\r\n{PRIZE}"  # where a reader of chunks takes the prize for a request
FORGED = "HTTP/1.1 200 OK\r\nX-Answer: /forged\r\nContent-Length: 0\r\n\r\n"
CHUNKED = "Transfer-Encoding: chunked\r\n\r\n"
# Refused, or when it had begun to go on; answered; a site that itself takes the prize.
REFUSED, BROKEN, ANSWERED, CARELESS = "refused", "broken", "answered", "careless"

# A POST's fields, %d its length; its body; what becomes of it.
REQUESTS = {
    "CL.TE": ("Content-Length: %d\r\nTransfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE.CL": ("Transfer-Encoding: chunked\r\nContent-Length: 4", f"{len(PRIZE):x}\r\n{PRIZE}\r\n0\r\n\r\n", REFUSED),
    "TE behind a bare LF": ("Content-Length: %d\r\nX: y\nTransfer-Encoding: chunked", CHUNKS, REFUSED),
    "chunks": ("Transfer-Encoding: chunked", f"{len(PRIZE):x};a=b\r\n{PRIZE}\r\n0\r\nA: b\r\n\r\n", ANSWERED),
    "chunks that another reads as an end": ("Transfer-Encoding: chunked", f"0 {len(PRIZE):x}\r\n\r\n{PRIZE}", BROKEN),
    "chunks longer than they say": ("Transfer-Encoding: chunked", f"1\r\n{PRIZE}\r\n0\r\n\r\n", BROKEN),
    "CL the same twice": ("Content-Length: %d\r\nContent-Length: %d", PRIZE, ANSWERED),
    "CL named by Connection": ("Content-Length: %d\r\nConnection: Content-Length", PRIZE, ANSWERED),
    "bare LF": ("X: y\n\nGET /smuggled HTTP/1.1\nHost: localhost\n", "", REFUSED),
    "loop": ("Content-Length: 0\r\nVia: 1.1 netsift, 1.1 netsift\r\nVia: 1.1 netsift, 1.0 netsift", "", REFUSED),
    "early answer": ("X-Origin: early\r\nContent-Length: %d", PRIZE * 5000, ANSWERED),
    "CL.0": ("X-Origin: bodiless\r\nContent-Length: %d", PRIZE, CARELESS),
    "CL.0, slowly": ("X-Origin: bodiless, slow\r\nContent-Length: %d", PRIZE, CARELESS),
    "TE with an underscore": ("Content-Length: %d\r\nTransfer_Encoding: chunked", CHUNKS, CARELESS),
}
# The site's answer behind X-Answer, a forged one follows it.
ANSWERS = {
    "CL and TE": ("200 OK", f"Content-Length: 5\r\n{CHUNKED}0\r\n\r\n", ANSWERED),
    "chunks that are none": ("200 OK", f"{CHUNKED}zz\r\n", REFUSED),
    "bytes behind CL": ("200 OK", "Content-Length: 0\r\n\r\n", ANSWERED),
    "bytes behind the last chunk": ("200 OK", f"{CHUNKED}0\r\n\r\n", ANSWERED),
    "body of a 204": ("204 No Content", f"Content-Length: {len(FORGED)}\r\n\r\n", ANSWERED),
    "body of an answer to HEAD": ("200 OK", f"Content-Length: {len(FORGED)}\r\n\r\n", ANSWERED),
    "101 that nobody asked for": ("101 Switching Protocols", "Connection: upgrade\r\nUpgrade: x\r\n\r\n", REFUSED),
}


class Smuggling(Case):
    def setUp(self):
        self.answer = "200 OK", "Content-Length: 0\r\n\r\n"
        self.site = f"localhost:{self.peer(self.serve).port}"

    def serve(self, connection):
        """An origin that believes in every trick."""
        reader = connection.makefile("rb")
        while head := b"\n".join(iter(lambda: reader.readline().strip(b"\r\n"), b"")).decode("latin-1"):
            path = re.search("/[a-z]+", head.partition(" ")[2].replace(f"http://{self.site}", ""))[0]
            self.served.append(path)
            if path == "/smuggled" and self.slow:
                time.sleep(0.3)
            self.slow = "slow" in head
            length, early = re.search("content-length: *([0-9]+)", head.lower()), "early" in head
            if "chunked" in head:
                read_chunks(reader)
            elif length and "bodiless" not in head and not early:
                reader.read(int(length[1]))
            status, rest = self.answer if path == "/attack" else ("200 OK", "Content-Length: 0\r\n\r\n")
            connection.sendall(f"HTTP/1.1 {status}\r\nX-Answer: {path}\r\n{rest}".encode())
            if early:
                connection.shutdown(1)
                return reader.read()

    def exchange(self, filtering, attack, pipelined):
        """All that comes back for the attack and the request that follows it."""
        follower = f"GET http://{self.site}/next HTTP/1.1\r\nHost: {self.site}\r\nConnection: close\r\n\r\n".encode()
        received, self.served, self.slow = b"", [], False
        with filtering.connect() as client, contextlib.suppress(ConnectionError):
            client.sendall(attack + follower * pipelined)
            while part := client.recv(65536):
                received += part
                if not pipelined and b"\r\n\r\n" in received.partition(b"X-Answer: ")[2]:
                    pipelined = True
                    client.sendall(follower)
        return received.decode("latin-1")

    def check(self, filtering, name, method, fields, fate, never):
        attack = f"{method} http://{self.site}/attack HTTP/1.1\r\nHost: {self.site}\r\n{fields}".encode("latin-1")
        for pipelined in (True, False):
            with self.subTest(name, pipelined=pipelined):
                received = self.exchange(filtering, attack, pipelined)
                wait_until(lambda: not filtering.connections(), "the connection's end")
                answers = re.findall("X-Answer: (.*)\r\n", received)
                self.assertIn(answers, ([],) if fate in (REFUSED, BROKEN) else (["/attack"], ["/attack", "/next"]), received)
                self.assertEqual(bool(re.match("HTTP/1.1 [45]", received)), fate in (REFUSED, BROKEN), received)
                self.assertFalse(never.intersection(self.served), self.served)

    def test_requests(self):
        never = {REFUSED: {"/attack", "/smuggled", "/next"}, ANSWERED: {"/smuggled"}, CARELESS: set(),
                 BROKEN: {"/smuggled", "/next"}}
        for proxy in ("", f"127.0.0.1:{Squid(self.addCleanup).port}"):
            filtering = self.filter({"upstream.proxy": proxy})
            for name, (fields, body, fate) in REQUESTS.items():
                rest = f"{fields}\r\n\r\n{body}".replace("%d", str(len(body)))
                if fate != CARELESS or not proxy:  # squid is the one who is taken in there
                    self.check(filtering, name, "POST", rest, fate, never[fate])

    def test_answers(self):
        filtering = self.filter()
        for name, (status, rest, fate) in ANSWERS.items():
            self.answer = status, rest + FORGED
            never = {"/next"} if fate == REFUSED else set()
            self.check(filtering, name, "HEAD" if "HEAD" in name else "GET", "\r\n", fate, never)
