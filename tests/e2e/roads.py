"""What must hold on every road a page takes: subclasses say which filter and which origin name."""
import random

from harness import Filter, Nginx


class Roads:
    """Tests for a class that sets `settings` and `host` (a name of the origin on this road)."""

    @classmethod
    def setUpClass(cls):
        cls.origin = Nginx(cls.addClassCleanup)
        cls.filtering = Filter(cls.addClassCleanup, cls.settings)
        cls.base = f"http://{cls.host}:{cls.origin.port}"

    def test_pages_arrive_byte_for_byte(self):
        noise = random.Random(4711)
        for size in (1, 1000, 8192, 65535, 65536, 65537, 70_000, 5_000_000):
            for kind in ("txt", "bin"):
                with self.subTest(size=size, kind=kind):
                    page = self.origin.put(f"{size}.{kind}", noise.randbytes(size))
                    answer = self.filtering.fetch(f"{self.base}/{size}.{kind}")
                    self.assertEqual((answer.code, len(answer.body)), (200, size))
                    self.assertEqual(answer.body, page)

    def test_three_requests_on_one_connection(self):
        pages = [self.origin.put(f"kept{i}.txt", b"page %d\n" % i * (9000 - i)) for i in range(3)]
        answer = self.filtering.fetch(f"{self.base}/kept[0-2].txt")
        self.assertEqual(answer.transfers, [(200, len(page), int(i == 0)) for i, page in enumerate(pages)])
        self.assertEqual(answer.body, pages[-1])

    def test_post_of_a_megabyte(self):
        body = random.Random(1).randbytes(1 << 20)
        (self.origin.folder / "upload").write_bytes(body)
        answer = self.filtering.fetch(f"{self.base}/post", "--data-binary", f"@{self.origin.folder}/upload")
        self.assertEqual((answer.code, answer.body), (200, b"taken\n"))
        self.assertIn(body, self.origin.bodies())

    def test_answers_without_a_page(self):
        self.origin.put("plain.txt", b"text\n")
        head = self.filtering.fetch(f"{self.base}/plain.txt", "--head")
        self.assertEqual((head.code, head.body.decode()), (200, head.head))  # curl shows a HEAD's head as its body
        self.assertIn("Content-Length: 5\r\n", head.head)
        date = next(line for line in head.head.splitlines() if line.startswith("Last-Modified: "))
        unchanged = self.filtering.fetch(f"{self.base}/plain.txt", "-H", date.replace("Last-", "If-", 1)
                                         .replace("Modified:", "Modified-Since:"))
        self.assertEqual((unchanged.code, unchanged.body), (304, b""))
        missing = self.filtering.fetch(f"{self.base}/missing.txt")
        self.assertEqual(missing.code, 404)
        self.assertIn(b"404 Not Found", missing.body)

    def test_https_is_relayed(self):
        page = self.origin.put("secret.txt", b"s" * 100_000)
        answer = self.filtering.fetch(f"https://{self.host}:{self.origin.tls_port}/secret.txt",
                                      "--cacert", self.origin.certificate)
        self.assertEqual((answer.code, answer.body), (200, page))
        self.assertIn(f"Client IP:127.0.0.1,URL:{self.host},STATUS:TUNNELED,HTTPS REQUEST", self.filtering.results())

    def test_the_origin_is_asked_for_the_page_uncoded(self):
        self.origin.put("coded.txt", b"text\n")
        self.filtering.fetch(f"{self.base}/coded.txt", "--compressed")
        self.assertEqual(self.origin.seen("/coded.txt").split("|")[3], "identity")
        self.filtering.wait_for_line(f"Client IP:127.0.0.1,CONTENT TYPE:text/plain,HOST NAME:{self.host}")
