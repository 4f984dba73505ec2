"""One address has many forms: none of them goes by a list, a look for uploads or a verdict on another page."""
import gzip
import re

from harness import TOP, Case, read_head

DATE = "Last-Modified: Tue, 15 Nov 1994 12:45:26 GMT"
FILE = b'--b\r\nContent-Disposition: form-data; name="f"; filename="x"\r\n\r\ndata\r\n--b--\r\n'
PART = FILE.replace(b' filename="x"', b"")
WORDS, PLAIN = (TOP / "share/site/words.html").read_bytes(), b"<html><body><p>fine</p></body></html>"
LISTS = {"sample.dom": "# format: hosts\n0.0.0.0 LISTED.example localhost # a note\n0.0.0.0 b\u00fccher.example\n"
                       "127.0.0.1 127.9.9.9 [2001:db8::1]\n",
         "adserver.dom": "! format: adblock\n||Ads.example^$document\n",
         "sample.url.orig": "\ufeff# format: urls\n"
                            "https://www.Partly.example:8443/Listed/ # a note\n"
                            "partly.example/?page=1\npartly.example?page=2\n",
         "whitelist.dom": "", "whitelist.url.orig": "partly.example/free/*\n"}
REFUSED = (
    "http://listed.example/", "http://LISTED.Example./", "http://sub.listed.example:81/", "http://%6cisted.example/",
    "http://b\u00fccher.example/", "http://B%C3%9CCHER.example/", "http://xn--bcher-kva.example/",
    "http://ads.example/", "http://127.9.9.9/", "http://0x7f.9.2313/", "http://2131298569/", "http://0177.9.9.011/",
    "http://[::ffff:127.9.9.9]/", "http://[2001:0DB8:0::1]/", "http://u:p@listed.example/", "http://08.9.9.9/",
    "http://partly.example/Listed", "http://www.partly.example:81/Listed/", "http://partly.example//Listed",
    "http://partly.example/.//Listed", "http://partly.example/x//../Listed", "http://partly.example/%2fListed",
    "http://partly.example/%2e%2fListed", "http://partly.example/x/..;/Listed", "http://partly.example/Listed;a=b",
    "http://partly.example/%254cisted", "http://partly.example/x/..%5cListed", "http://partly.example/x%2fy/../Listed",
    "http://partly.example?page=1", "http://partly.example/?page=2", "http://partly.example/free/../Listed",
    "http://partly.example/free//..%2fListed",
    "http://partly.example/free%2f..;/Listed")
PASSED = ("http://example/", "http://notlisted.example/", "http://partly.example/Listed/more", "http://127.9.9.8/",
          "http://partly.example/listed", "http://partly.example/free/x", "http://partly.example/a//b;c/%25x?page=1")


class Forms(Case):
    def proxied(self, settings=None, files=None, page=lambda head: PLAIN):
        """A filter before a proxy that answers for every site."""
        def answer(upstream):
            if not (head := read_head(upstream)):
                return  # refused when it was connected
            length = re.search(rb"Content-Length: (\d+)", head)
            received = upstream.recv(int(length[1])) if length else b""
            self.heads.append(head + received)
            body = page(head)
            fields = f"{DATE}\r\nContent-Type: text/html\r\nContent-Length: {len(body)}\r\n\r\n"
            upstream.sendall(f"HTTP/1.0 200 OK\r\n{fields}".encode() + body)

        self.heads = []
        return self.filter({"upstream.proxy": f"127.0.0.1:{self.peer(answer).port}"} | (settings or {}), files)

    def status(self, filtering, head, body=b""):
        return int(filtering.exchange(f"{head} HTTP/1.1\r\nHost: x\r\n".encode() + body).split()[1])

    def test_what_is_listed_is_listed_in_every_form(self):
        filtering = self.proxied(files=LISTS)
        for target in REFUSED:
            code = 400 if "@" in target or "/08." in target else 403
            self.assertEqual(self.status(filtering, f"GET {target}", b"\r\n"), code, target)
        self.assertEqual(self.heads, [])
        for target in PASSED:
            self.assertEqual(self.status(filtering, f"GET {target}", b"\r\n"), 200, target)
        self.assertIn(b"GET http://partly.example/a//b;c/%25x?page=1 ", self.heads[-1])

    def test_uploads_are_found_on_every_port_and_in_every_coding(self):
        filtering = self.proxied({"requests.block_uploads": True, "requests.upload_sites": ["h/taken"]})
        form = "Content-Type: multipart/form-data; boundary=b"
        for target, field, body, code in (
                ("http://h:8100/x", form, FILE, 403),
                ("http://h/x", f"{form}\r\nContent-Encoding: gzip", gzip.compress(FILE), 403),
                ("http://h/x", f"{form}\r\nContent-Encoding: br", FILE, 403),
                ("http://h/x", form, FILE.decode().encode("utf-16"), 403),
                ("http://h/x", form, PART + FILE.decode().encode("utf-16"), 403),
                ("http://h/x", f"{form}\r\nContent-Encoding: gzip", gzip.compress(PART), 200),
                ("http://h/x", f"{form}\r\nContent-Encoding: gzip", gzip.compress(PART + FILE), 403),
                ("http://h/x", form, PART, 200), ("http://h/taken", form, FILE, 200),
                ("http://h/taken/../x", form, FILE, 403), ("http://h/x/..;/taken", form, FILE, 403)):
            request = f"{field}\r\nContent-Length: {len(body)}\r\n\r\n".encode() + body
            self.assertEqual(self.status(filtering, f"POST {target}", request), code, (target, field))
        self.assertEqual(len(self.heads), 3)

    def test_a_verdict_says_nothing_of_another_port(self):
        filtering = self.proxied(page=lambda head: WORDS if b":81/" in head else PLAIN)
        for port, code in ((80, 200), (81, 403), (80, 200), (81, 403)):
            self.assertEqual(self.status(filtering, f"GET http://h:{port}/page", b"\r\n"), code, port)
        self.assertIn("URL:h/page,STATUS:BLOCKED,Offensive content.(In cache db)", filtering.lines())
