"""Ways to show a word that is not in the bytes: each is blocked where words are matched, and passes where bytes are."""
from harness import Case

PHRASES = '<"zonk">100\n<blorp>30\n<слово>100\n<~>0\n'
HTML, FILLING = "text/html", "<p>harmless</p>\n" * 10_000
ESCAPED = '{"a": "z\\u006fnk"}'
WAYS = {  # status, type, body
    "start": (200, HTML, "zonk is a title"),
    "punctuation": (200, HTML, "<p>a (zonk)"),
    "line": (200, HTML, "<p>zonk<br>"),
    "comment": (200, HTML, "a zo<!-- > -->nk b"),
    "soft": (200, HTML, "a zo&shy;nk b"),
    "hexadecimal": (200, HTML, "a z&#x6f;nk b"),
    "wide": (200, HTML, "a \uff3a\uff2f\uff2e\uff2b b"),
    "attribute": (200, HTML, '<img title=">" alt="zonk">'),
    "stray": (200, HTML, "1 < 2 zonk b"),
    "meta": (200, HTML, '<meta name="keywords" content="zonk">'),
    "utf-16": (200, HTML, "a слово b".encode("utf-16")),
    "windows-1251": (200, f"{HTML}; charset=windows-1251", "a Слово b".encode("cp1251")),
    "named": (200, HTML, '<meta charset="shift_jis">a слово b'.encode("sjis")),
    "utf-7": (200, f"{HTML}; charset=utf-7", "a zo+AG4-k b"),
    "iso-2022-jp": (200, f"{HTML}; charset=iso-2022-jp", "a zo\x1b(Bnk b"),
    "spread": (200, HTML, f"blorp{FILLING}" * 4),
    "border": (200, HTML, (" " * 65534) + " zonk " + FILLING),
    "redirect": (302, HTML, "<a>zonk.</a>"),
    "missing": (404, HTML, "<a>zonk.</a>"),
    "failing": (500, HTML, "<a>zonk.</a>"),
    "xml": (200, "application/xml", "<a> zonk </a>"),
    "svg": (200, "image/svg+xml", "<svg><text> zonk </text></svg>"),
    "json": (200, "application/json; charset=utf-8", ESCAPED),
    "parts": (206, "multipart/byteranges; boundary=b", "--b\r\n\r\na zonk b\r\n--b--\r\n"),
    "mail": (200, "message/rfc822", "Subject: zonk\r\n\r\n"),
    "nameless": (200, None, "<p>zonk.</p>"),
}
CLEAN = {
    "commented": (200, HTML, "a <!-- zonk --> b <a id=zonk>c</a>"),
    "longer": (200, HTML, "zonky"),
    "three": (200, HTML, f"blorp{FILLING}" * 3),
    "picture": (200, "image/png", b"\x89PNG zonk "),
}


class Words(Case):
    def setUp(self):
        self.site = f"http://localhost:{self.peer(self.serve).port}"

    def serve(self, connection):
        reader = connection.makefile("rb")
        name = reader.readline().split(b" ")[1].rpartition(b"/")[2].decode()
        while reader.readline().strip():
            pass
        status, content_type, body = (WAYS | CLEAN)[name]
        body = body.encode() if isinstance(body, str) else body
        field = f"Content-Type: {content_type}\r\n" if content_type else ""
        head = f"HTTP/1.1 {status} X\r\n{field}Content-Length: {len(body)}\r\nConnection: close\r\n\r\n"
        connection.sendall(head.encode() + body)

    def test_ways_around(self):
        words = self.filter(files={"sample.phrase": PHRASES})
        as_bytes = self.filter({"content.match": "bytes"}, {"sample.phrase": PHRASES})
        for name, (_, _, body) in (WAYS | CLEAN).items():
            body = body.encode() if isinstance(body, str) else body
            with self.subTest(name):
                self.assertEqual(as_bytes.fetch(f"{self.site}/{name}").body, body)
                answer = words.fetch(f"{self.site}/{name}") if name in CLEAN else words.exchange(
                    f"GET {self.site}/{name} HTTP/1.1\r\nHost: x\r\n\r\n".encode())
                if name in CLEAN:
                    self.assertEqual(answer.body, body)
                    continue
                results = [line for line in words.results() if f"/{name}," in line]
                self.assertEqual([line.partition("STATUS:")[2] for line in results],
                                 ["BLOCKED,Offensive Content:Sample category", "BLOCKED,offensive content"])
                self.assertFalse(answer.endswith(body[-20:]))
