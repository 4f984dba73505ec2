"""docs/http.md, row by row: what the site sees of a request and what the client gets of the answer."""
import re
import threading
import zlib

from exchanges import read_chunks
from harness import TOP, Case, read_head

OK = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"
CHUNKS = ("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nTrailer: T\r\n\r\n"
          "2\r\nok\r\n0\r\nT: x\r\nContent-Length: 9\r\nSet-Cookie: y\r\n\r\n")
SWITCH = "HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: %s\r\n\r\nraw"
NOBODY = r"\A\Z"  # nothing reaches the site
BODY = "POST / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 4"
TRACED = "TRACE / HTTP/1.1\r\nMax-Forwards: %d\r\nCookie: secret\r\nX-Seen: 1"
# Row: request (without Host), the site's answer, what it saw, what the client got; both as patterns over the whole.
ROWS = [
    ("`Expect: 100-continue`", BODY, "HTTP/1.1 100 Continue\r\n\r\n" + OK, r"\r\nExpect: 100-continue\r\n[^|]*\|body\Z",
     r"\AHTTP/1.1 100 [^|]*HTTP/1.1 200 .*ok\Z"),
    ("`Expect: 100-continue`", BODY, OK, r"\r\nExpect: .*\|body\Z", r"\AHTTP/1.1 100 .*HTTP/1.1 200 .*ok\Z"),
    ("`Expect: 100-continue`", BODY, "HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n", r"\r\nExpect: [^|]*\|\Z",
     r"\AHTTP/1.1 401 (?!.*HTTP).*\r\nConnection: close\r\n"),
    ("`Expect: 100-continue`", BODY.replace("1.1", "1.0"), OK, r"\A(?!.*Expect).*\|body\Z", r"\AHTTP/1.1 200 .*ok\Z"),
    ("another expectation", "GET / HTTP/1.1\r\nExpect: 200-maybe", OK, NOBODY, r"\AHTTP/1.1 417 "),
    ("`Upgrade: websocket`", "GET / HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: websocket", SWITCH % "websocket",
     r"\A(?=.*\r\nConnection: Upgrade\r\n)(?=.*\r\nUpgrade: websocket\r\n)",
     r"\AHTTP/1.1 101 .*\r\n\r\nraw\Z"),
    ("`Upgrade: websocket`", "GET / HTTP/1.1\r\nUpgrade: websocket", OK, r"(?i)\A(?!.*upgrade)", "ok"),
    ("`Upgrade: h2c`, any other", "GET / HTTP/1.1\r\nConnection: Upgrade, HTTP2-Settings\r\nUpgrade: h2c\r\n"
     "HTTP2-Settings: x", OK, r"(?i)\A(?!.*(upgrade|http2))", r"\AHTTP/1.1 200 .*ok\Z"),
    ("`Upgrade: h2c`, any other", "GET / HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: h2c", SWITCH % "h2c", "",
     r"\AHTTP/1.1 502 (?!.*raw)"),
    ("`Upgrade: h2c`, any other", "GET / HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: websocket", SWITCH % "h2c", "",
     r"\AHTTP/1.1 502 (?!.*raw)"),
    ("`Max-Forwards: 0` with `TRACE`", TRACED % 0, OK, NOBODY,
     r"\AHTTP/1.1 200 (?!.*secret).*message/http.*\r\n\r\nTRACE http.* HTTP/1.1\r\n.*X-Seen: 1\r\n.*\r\n\r\n\Z"),
    ("`Max-Forwards: 0` with `TRACE`", "TRACE / HTTP/1.1\r\nContent-Length: 4", OK, NOBODY, r"\AHTTP/1.1 400 "),
    ("`Max-Forwards: 0` with `OPTIONS`", "OPTIONS * HTTP/1.1\r\nMax-Forwards: 0", OK, NOBODY,
     r"\AHTTP/1.1 200 .*\r\nAllow: GET, .*Content-Length: 0\r\n\r\n\Z"),
    ("`Max-Forwards` above 0 with either", TRACED % 10, OK, r"\ATRACE / .*\r\nMax-Forwards: 9\r\n", "ok"),
    ("`Max-Forwards` above 0 with either", "OPTIONS / HTTP/1.1\r\nMax-Forwards: 1", OK, r"\r\nMax-Forwards: 0\r\n", "ok"),
    ("`Max-Forwards` above 0 with either", "GET / HTTP/1.1\r\nMax-Forwards: 0", OK, r"\r\nMax-Forwards: 0\r\n", "ok"),
    ("`OPTIONS *`", "OPTIONS * HTTP/1.1", OK, r"\AOPTIONS \* HTTP/1.1\r\n", r"\r\nVia: 1.1 netsift\r\n"),
    ("`Range` for one part", "GET / HTTP/1.1\r\nAccept-Encoding: gzip\r\nRange: bytes=0-1\r\nIf-Range: x", OK,
     r"(?=.*\r\nRange: bytes=0-1\r\n)(?=.*\r\nIf-Range: x\r\n).*\r\nAccept-Encoding: identity\r\n", "ok"),
    ("`Range` for several parts", "GET / HTTP/1.1\r\nRange: bytes=0-1,3-4\r\nIf-Range: x", OK, r"\A(?!.*Range:)", "ok"),
    ("103 and other interim answers", "GET / HTTP/1.1", "HTTP/1.1 103 Early Hints\r\nLink: </s>\r\n\r\n" * 2 + OK, "",
     r"\A(HTTP/1.1 103 Early Hints\r\nVia: 1.1 netsift\r\nLink: </s>\r\n\r\n){2}HTTP/1.1 200 "),
    ("103 and other interim answers", "GET / HTTP/1.1", "HTTP/1.1 103 Early Hints\r\n\r\n" * 21 + OK, "",
     r"\A(HTTP/1.1 103 [^/]*){20}HTTP/1.1 502 "),
    ("103 and other interim answers", "GET / HTTP/1.0", "HTTP/1.1 103 Early Hints\r\n\r\n" + OK, "", r"\AHTTP/1.1 200 "),
    ("trailers of an answer", "GET / HTTP/1.1\r\nTE: trailers", CHUNKS, r"\A(?!.*\r\nTE:)",
     r"\AHTTP/1.1 200 .*\r\nTrailer: T\r\n(.*\r\n)?\r\n2\r\nok\r\n0\r\nT: x\r\n\r\n\Z"),
    ("trailers of an answer", "GET / HTTP/1.0", CHUNKS, "", r"\AHTTP/1.1 200 (?!.*(Trailer|chunked)).*\r\n\r\nok\Z"),
    ("trailers of a request", "POST / HTTP/1.1\r\nTransfer-Encoding: chunked", OK, r"\|bodyT: x\r\n\Z", "ok"),
    ("a coding that is not known", "GET / HTTP/1.1\r\nAccept-Encoding: compress, gzip;q=0.5",
     OK.replace("Content", "Content-Type: text/html\r\nContent-Encoding: compress\r\nContent"),
     r"\A(?!.*compress).*\r\nAccept-Encoding: gzip;q=0.5\r\n", r"\AHTTP/1.1 403 .*coding that cannot be read"),
    ("a `Transfer-Encoding` other than `chunked`", "GET / HTTP/1.1",
     "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n", "", r"\AHTTP/1.1 200 .*\r\n2\r\nok\r\n0"),
    ("a `Transfer-Encoding` other than `chunked`", "GET / HTTP/1.1", OK.replace("Con", "Transfer-Encoding: identity\r\nCon"),
     "", r"\AHTTP/1.1 200 (?!.*Transfer).*\r\n\r\nok\Z"),
    ("a folded line, or LF alone behind a line", "GET / HTTP/1.1", OK.replace("\r\nC", "\nX:\r\n a\nC"), "",
     r"\AHTTP/1.1 200 .*\r\nX: a\r\nContent-Length: 2\r\n"),
    ("a length beside `chunked`", "GET / HTTP/1.1", CHUNKS.replace("Trailer: T", "Content-Length: 1"), "",
     r"\AHTTP/1.1 200 (?!.*Length).*\r\n\r\n2\r\nok\r\n"),
]


class Http(Case):
    def serve(self, connection):
        """Speaks its piece at once when that is no success, else after what it needs to hear."""
        head = read_head(connection).decode("latin-1")
        if not head:
            return
        self.seen, rest = head + "|", self.answer
        if "\r\nExpect:" in head and " 100 " in self.answer:
            interim, _, rest = self.answer.partition("\r\n\r\n")
            connection.sendall(f"{interim}\r\n\r\n".encode())
        if " 401 " not in self.answer:
            reader, length = connection.makefile("rb"), re.search("Content-Length: (\\d+)", head)
            body = read_chunks(reader) if "chunked" in head else reader.read(int(length[1]) if length else 0)
            self.seen += body.decode()
        connection.sendall(rest.encode())

    def ask(self, filtering, request):
        """All that comes back; a body is sent at once, or when it is asked for."""
        site = f"localhost:{self.site.port}"
        method, path, rest = request.split(" ", 2)
        address = f"http://{site}{path}".replace("/*", "/") if path != "*" else path
        received, body = b"", b"body"
        if "chunked" in request:
            body = b"4\r\nbody\r\n0\r\nT: x\r\nHost: y\r\n\r\n"
        with filtering.connect() as client:
            head = f"{method} {address} {rest}\r\nHost: {site}\r\n"
            close = "" if "Connection" in rest else "Connection: close\r\n"
            at_once = method == "POST" and ("Expect" not in rest or "1.0" in rest)
            client.sendall(f"{head}{close}\r\n".encode() + body * at_once)
            while part := client.recv(65536):
                received += part
                if received.startswith(b"HTTP/1.1 100") and received.count(b"\r\n\r\n") == 1 and body:
                    client.sendall(body)
                    body = b""
                if received.endswith((b"ok", b"raw", b"\r\n0\r\n\r\n")):
                    client.shutdown(1)
        return received.decode("latin-1")

    def test_every_row(self):
        documented = re.findall(r"^\| (.+?) \| ", (TOP / "docs/http.md").read_text(), re.M)[1:]
        self.assertEqual(documented, list(dict.fromkeys(row[0] for row in ROWS)))
        filtering, self.site = self.filter(), self.peer(self.serve)
        for name, request, self.answer, seen, got in ROWS:
            with self.subTest(name, request=request):
                self.seen = ""
                received = self.ask(filtering, request)
                self.assertRegex(received, f"(?s){got}")
                self.assertRegex(self.seen, f"(?s){seen}")
        requested = "Client IP:127.0.0.1,CONTENT TYPE:,HOST NAME:localhost,REQUESTED URL:localhost"
        self.assertIn(requested, filtering.lines())

    def test_text_is_not_held_back_by_bytes_that_give_none(self):
        packer, read, filtering = zlib.compressobj(), threading.Event(), self.filter()
        packed = packer.compress(b"<p>here it is") + packer.flush(zlib.Z_SYNC_FLUSH)

        def serve(connection):
            read_head(connection)
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n" + start)
            while not read.wait(0.1):
                connection.sendall(more)
        site = f"localhost:{self.peer(serve).port}"
        for start, more in ((b"Content-Encoding: deflate\r\n\r\n" + packed, b"\0\0\0\xff\xff"),  # a block of no bytes
                            (b"Transfer-Encoding: chunked\r\n\r\n2\r\nhi\r\n1;", b"x")):
            read.clear()
            with filtering.connect() as client:
                client.sendall(f"GET http://{site}/ HTTP/1.1\r\nHost: {site}\r\n\r\n".encode())
                self.assertIn(b" 200 ", client.recv(65536))
                read.set()
