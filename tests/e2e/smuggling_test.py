"""Messages that two readers may cut differently. Whatever a client or a site does to the framing, the next request on
the connection is refused or gets its own answer, and bytes that are no message of their own are never served as one."""
import re
import time

from harness import Case, Squid

PRIZE = "GET /smuggled HTTP/1.1\r\nHost: localhost\r\n\r\n"
CHUNKS = f"0\r\n\r\n{PRIZE}"  # where a reader of chunks takes the prize for a request
FORGED = "HTTP/1.1 200 OK\r\nX-Answer: /forged\r\nContent-Length: 0\r\n\r\n"
REFUSED, ANSWERED = "refused", "answered"

# A POST's fields, %d its length; its body; what becomes of it.
REQUESTS = {
    "CL.TE": ("Content-Length: %d\r\nTransfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE.CL": ("Transfer-Encoding: chunked\r\nContent-Length: 4", f"{len(PRIZE):x}\r\n{PRIZE}\r\n0\r\n\r\n", REFUSED),
    "TE.TE": ("Transfer-Encoding: chunked\r\nTransfer-Encoding: identity", CHUNKS, REFUSED),
    "TE alone": ("Transfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE of two codings": ("Transfer-Encoding: gzip, chunked", CHUNKS, REFUSED),
    "TE spelled wrongly": ("Content-Length: %d\r\nTransfer-Encoding: xchunked", CHUNKS, REFUSED),
    "TE before a blank": ("Content-Length: %d\r\nTransfer-Encoding : chunked", CHUNKS, REFUSED),
    "TE of a control byte": ("Content-Length: %d\r\nTransfer-Encoding: \x0bchunked", CHUNKS, REFUSED),
    "TE in a folded line": ("Content-Length: %d\r\nX: y\r\n Transfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE folded": ("Content-Length: %d\r\nTransfer-Encoding:\r\n chunked", CHUNKS, REFUSED),
    "TE behind a bare LF": ("Content-Length: %d\r\nX: y\nTransfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE behind a bare CR": ("Content-Length: %d\r\nX: y\rTransfer-Encoding: chunked", CHUNKS, REFUSED),
    "TE behind a NUL": ("Content-Length: %d\r\nX: y\0Transfer-Encoding: chunked", CHUNKS, REFUSED),
    "CL twice": ("Content-Length: 0\r\nContent-Length: %d", PRIZE, REFUSED),
    "CL list": ("Content-Length: 0, %d", PRIZE, REFUSED),
    "CL signed": ("Content-Length: +%d", PRIZE, REFUSED),
    "CL hexadecimal": ("Content-Length: 0x10", PRIZE, REFUSED),
    "CL too large": ("Content-Length: 18446744073709551616", PRIZE, REFUSED),
    "CL before a blank": ("Content-Length : %d", PRIZE, REFUSED),
    "CL named by Connection": ("Content-Length: %d\r\nConnection: Content-Length", PRIZE, ANSWERED),
    "CL the same twice": ("Content-Length: %d\r\nContent-Length: %d", PRIZE, ANSWERED),
    "bare LF": ("X: y\n\nGET /smuggled HTTP/1.1\nHost: localhost\n", "", REFUSED),
    "second Host": ("Content-Length: 0\r\nHost: other", "", REFUSED),
    "early answer": ("X-Origin: early\r\nContent-Length: %d", PRIZE * 5000, ANSWERED),
}
# A site that takes what is no body for one, or a body for none: nobody but itself knows where it goes on.
CARELESS = {
    "CL.0": ("X-Origin: bodiless\r\nContent-Length: %d", PRIZE, ANSWERED),
    "CL.0, slowly": ("X-Origin: bodiless, slow\r\nContent-Length: %d", PRIZE, ANSWERED),
    "CL.0, invited": ("X-Origin: bodiless\r\nExpect: 100-continue\r\nContent-Length: %d", PRIZE, ANSWERED),
    "TE with an underscore": ("Content-Length: %d\r\nTransfer_Encoding: chunked", CHUNKS, ANSWERED),
}
# The site's answer behind its status line and X-Answer.
ANSWERS = {
    "CL and TE": ("200 OK", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", ANSWERED),
    "CL twice": ("200 OK", f"Content-Length: 0\r\nContent-Length: {len(FORGED)}\r\n\r\n", REFUSED),
    "CL signed": ("200 OK", "Content-Length: +0\r\n\r\n", REFUSED),
    "TE twice": ("200 OK", "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n\r\n0\r\n\r\n", REFUSED),
    "TE folded": ("200 OK", "Content-Length: 0\r\nTransfer-Encoding:\r\n chunked\r\n\r\n0\r\n\r\n", REFUSED),
    "TE behind a bare LF": ("200 OK", "X: y\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", REFUSED),
    "TE behind a bare CR": ("200 OK", "X: y\rTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", REFUSED),
    "chunk size of other digits": ("200 OK", "Transfer-Encoding: chunked\r\n\r\n0x0\r\n\r\n", REFUSED),
    "chunk size too large": ("200 OK", "Transfer-Encoding: chunked\r\n\r\n10000000000000000\r\n\r\n", REFUSED),
    "chunk size with a bare LF": ("200 OK", "Transfer-Encoding: chunked\r\n\r\n0\n\n", REFUSED),
    "bytes behind CL": ("200 OK", "Content-Length: 0\r\n\r\n", ANSWERED),
    "bytes behind the last chunk": ("200 OK", "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", ANSWERED),
    "body of a 204": ("204 No Content", f"Content-Length: {len(FORGED)}\r\n\r\n", ANSWERED),
    "body of a 304": ("304 Not Modified", f"Content-Length: {len(FORGED)}\r\n\r\n", ANSWERED),
    "body of an answer to HEAD": ("200 OK", f"Content-Length: {len(FORGED)}\r\n\r\n", ANSWERED),
    "101 that nobody asked for": ("101 Switching Protocols", "Connection: upgrade\r\nUpgrade: x\r\n\r\n", REFUSED),
}


class Smuggling(Case):
    def setUp(self):
        self.origin, self.served = self.peer(self.serve), []

    def serve(self, connection):
        """An origin that believes in every trick."""
        reader = connection.makefile("rb")
        while head := "\n".join(line.decode("latin-1") for line in iter(lambda: reader.readline().strip(b"\r\n"), b"")):
            path = re.search("/[a-z]+", head.partition(" ")[2].replace(f"http://localhost:{self.origin.port}", ""))[0]
            self.served.append(path)
            if path == "/smuggled" and self.slow:
                time.sleep(0.3)
            length = re.search("content-length: *([0-9]+)", head.lower())
            early = "early" in head
            if "chunked" in head:
                while int(reader.readline(), 16):
                    reader.readline()
            elif length and "bodiless" not in head and not early:
                reader.read(int(length[1]))
            self.slow = "slow" in head
            status, rest = self.answer if path == "/attack" else ("200 OK", "Content-Length: 0\r\n\r\n")
            connection.sendall(f"HTTP/1.1 {status}\r\nX-Answer: {path}\r\n{rest}".encode())
            if early:
                connection.shutdown(1)
                return reader.read()

    def exchange(self, filtering, attack, pipelined):
        """All that comes back for the attack and the request that follows it."""
        site = f"localhost:{self.origin.port}"
        follower = f"GET http://{site}/next HTTP/1.1\r\nHost: {site}\r\nConnection: close\r\n\r\n".encode()
        attack = attack.replace("SITE", site).encode("latin-1")
        received, self.served, self.slow = b"", [], False
        with filtering.connect() as client:
            try:
                client.sendall(attack + follower if pipelined else attack)
                while part := client.recv(65536):
                    received += part
                    if not pipelined and re.search(rb"X-Answer: .*\r\n\r\n", received, re.S):
                        pipelined = True
                        client.sendall(follower)
            except ConnectionError:
                pass
        return received.decode("latin-1")

    def check(self, filtering, name, attack, expected, unserved):
        for pipelined in (True, False):
            with self.subTest(name, pipelined=pipelined):
                received = self.exchange(filtering, attack, pipelined)
                answers = re.findall("X-Answer: (.*)\r\n", received)
                self.assertIn(answers, ([],) if expected == REFUSED else (["/attack"], ["/attack", "/next"]), received)
                if expected == REFUSED:
                    self.assertRegex(received, "^HTTP/1.1 [45]")
                self.assertFalse(unserved & set(self.served), self.served)

    def check_requests(self, filtering, requests, unserved):
        self.answer = "200 OK", "Content-Length: 0\r\n\r\n"
        for name, (fields, body, expected) in requests.items():
            attack = f"POST http://SITE/attack HTTP/1.1\r\nHost: SITE\r\n{fields}\r\n\r\n{body}"
            refused = {"/attack", "/next"} if expected == REFUSED else set()
            self.check(filtering, name, attack.replace("%d", str(len(body))), expected, unserved | refused)

    def test_answers(self):
        filtering = self.filter()
        for name, (status, rest, expected) in ANSWERS.items():
            self.answer = status, rest + FORGED
            method = "HEAD" if "HEAD" in name else "GET"
            attack = f"{method} http://SITE/attack HTTP/1.1\r\nHost: SITE\r\n\r\n"
            self.check(filtering, name, attack, expected, {"/next"} if expected == REFUSED else set())

    def test_requests_direct(self):
        filtering = self.filter()
        self.check_requests(filtering, REQUESTS, {"/smuggled"})
        self.check_requests(filtering, CARELESS, set())

    def test_requests_through_squid(self):
        squid = Squid(self.addCleanup)
        filtering = self.filter({"upstream.proxy": f"127.0.0.1:{squid.port}"})
        self.check_requests(filtering, REQUESTS, {"/smuggled"})
