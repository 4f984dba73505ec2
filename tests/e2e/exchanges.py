"""Made-up requests and answers, in all the ways that a message may be framed, cut, coded and described."""
UPLOADS = (0, 1, 10239, 10240, 10241, 20480, 65536, 65537)
SIZES = (0, 0, 1, 2, 1000, 8192, 10240, 16384, 65535, 65536, 65537, 131073)
METHODS = ("GET",) * 8 + ("POST",) * 4 + ("HEAD", "PUT", "DELETE", "PATCH", "OPTIONS")
PATHS = ("", "/", "?a=%00&b=//c", "/a%2fb/../c;d", "/%c3%bc", "?" + "q" * 3000)
REQUEST_FIELDS = ("Cookie: a=b; c=d", "X-Empty;", "Range: bytes=1-", 'If-None-Match: "e"', "Connection: close",
                  "Connection: X-Hop, keep-alive\nX-Hop: 1", "TE: trailers", "Accept-Encoding: sdch, gzip",
                  "Cache-Control: no-cache", "Authorization: Basic YTpi", "Upgrade-Insecure-Requests: 1")
STATUSES = ("200 OK",) * 10 + (
    "201 Created", "202", "203 ", "204 No Content", "206 Partial Content", "301 Moved Permanently", "304 Not Modified",
    "401 Unauthorized", "403 Forbidden", "404 Not Found", "416 Range", "500 Internal Server Error", "599 Made \xfcp")
INTERIMS = ("",) * 3 + ("HTTP/1.1 103 Early Hints\nLink: </s>\n\n", "HTTP/1.1 100 Continue\n\n")
ANSWER_FIELDS = ("Set-Cookie: a=1\nSet-Cookie: b=2", "Location: /x y", "X-Long: " + "l" * 7000, "X-Empty:", 'ETag: "e"',
                 "Connection: X-Hop\nX-Hop: 1", "Keep-Alive: timeout=5", "X-Obs: \xe4\xff", "Via: 1.0 far",
                 "Content-Encoding: gzip", "content-encoding:deflate", "Content-Encoding: br", "CONTENT-TYPE:text/html",
                 "Content-Range: bytes 1-2/3", 'WWW-Authenticate: Basic realm="a, b"')
LENGTHS = ("Content-Length: {0}", "content-length:{0}", "Content-Length: {0}\nContent-Length: {0}")


def chunked(noise, body):
    wire = b""
    while body:
        piece, body = body[:(size := noise.choice((1, 7, 4096, 16383, 70000)))], body[size:]
        wire += noise.choice((b"%x", b"%X", b"000%x", b"%x;a=b", b"%x ")) % len(piece) + b"\r\n" + piece + b"\r\n"
    return wire + noise.choice((b"0\r\n\r\n", b"000;end\r\n\r\n", b"0\r\nX-Trailer: 1\r\n\r\n"))


def read_chunks(reader):
    """A chunked body, as far as it comes, and its trailers."""
    body = b""
    while (line := reader.readline().strip()) and (size := int(line, 16)):
        body += reader.read(size + 2)[:size]
    return body + b"".join(iter(reader.readline, b"\r\n" if line else b""))


class Exchange:
    def __init__(self, noise, number):
        self.method, self.path = noise.choice(METHODS), f"/{number}" + noise.choice(PATHS)
        self.http10, self.fields = noise.random() < 0.1, noise.sample(REQUEST_FIELDS, noise.randrange(3))
        self.upload = noise.choice(UPLOADS) if self.method in ("POST", "PUT", "PATCH") else None
        expects = self.upload and noise.random() < 0.2
        self.fields += ["Content-Type: application/x-made-up", "Expect: 100-continue" if expects else "Expect:"]
        self.fields += ["Transfer-Encoding: chunked"] * bool(self.upload and not self.http10 and noise.random() < 0.3)

        status, framing = noise.choice(STATUSES), noise.choice(("length", "length", "chunked", "close"))
        version = "1.1" if framing == "chunked" else noise.choice(("1.1", "1.1", "1.1", "1.0"))
        bodiless = self.method == "HEAD" or status[:3] in ("204", "304")
        size = noise.choice(SIZES) if noise.random() < 0.7 else noise.randrange(300_000)
        body = noise.randbytes(size) if noise.random() < 0.5 else b"<p>text\r\n\r\nHTTP/1.1 200 OK\r\n" * (size // 28)
        fields = noise.sample(ANSWER_FIELDS, noise.randrange(5))
        if framing == "length" and status[:3] != "204":
            fields.append(noise.choice(LENGTHS).format(len(body)))
        if framing == "chunked":
            fields, body = fields + ["Transfer-Encoding: chunked"], chunked(noise, body)
        noise.shuffle(fields)
        self.head = "\n".join((noise.choice(INTERIMS) * (version == "1.1") + f"HTTP/{version} {status}", *fields))
        self.breaks_off = framing == "length" and not bodiless and len(body) > 1 and noise.random() < 0.05
        self.closes = framing == "close" and not bodiless or version == "1.0" or self.breaks_off or noise.random() < 0.1
        self.announces = noise.random() < 0.7
        self.body = b"" if bodiless else body[:len(body) // 2] if self.breaks_off else body
        self.cut = noise.randrange(len(self.body) + 400)

    def pieces(self, field):
        """What the origin sends, one field added, in the pieces in which it sends it."""
        head = f"{self.head}\n{field}\n" + "Connection: close\n" * (self.closes and self.announces) + "\n"
        wire = head.encode("latin-1").replace(b"\n", b"\r\n") + self.body
        return wire[:self.cut], wire[self.cut:]
