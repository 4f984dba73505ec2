"""What must hold on both roads that a page takes."""
import random

from harness import Road


class Pages(Road):
    def test_pages_arrive_byte_for_byte(self):
        for size in (1, 1000, 65535, 65536, 65537, 70_000, 5_000_000):
            for name in (f"{size}.txt", f"{size}.bin"):
                page = self.origin.put(name, random.Random(name).randbytes(size))
                answer = self.filtering.fetch(f"{self.base}/{name}")
                self.assertEqual((answer.code, answer.body == page), (200, True), name)

    def test_three_requests_on_one_connection(self):
        pages = [self.origin.put(f"kept{i}.txt", b"page %d\n" % i * (9000 - i)) for i in range(3)]
        answer = self.filtering.fetch(f"{self.base}/kept[0-2].txt")
        self.assertEqual(answer.transfers, [(200, len(page), int(i == 0)) for i, page in enumerate(pages)])
        self.assertEqual(answer.body, pages[-1])

    def test_post_of_a_megabyte(self):
        body = self.origin.put("upload", random.Random(1).randbytes(1 << 20))
        answer = self.filtering.fetch(f"{self.base}/post", "--data-binary", f"@{self.origin.www}/upload")
        self.assertEqual((answer.code, answer.body), (200, b"taken\n"))
        self.assertIn(body, self.origin.bodies())

    def test_answers_without_a_page(self):
        self.origin.put("plain.txt", b"text\n")
        self.assertIn("Content-Length: 5\r\n", self.filtering.fetch(f"{self.base}/plain.txt", "--head").head)
        unchanged = self.filtering.fetch(f"{self.base}/plain.txt", "--time-cond", self.origin.www / "plain.txt")
        self.assertEqual((unchanged.code, unchanged.body), (304, b""))
        missing = self.filtering.fetch(f"{self.base}/missing.txt")
        self.assertEqual((missing.code, b"404 Not Found" in missing.body), (404, True))

    def test_https_is_relayed(self):
        page = self.origin.put("secret.txt", b"s" * 100_000)
        url = f"https://{self.host}:{self.origin.tls_port}/secret.txt"
        self.assertEqual(self.filtering.fetch(url, "--cacert", self.origin.folder / "cert.pem").body, page)
        self.assertIn(f"URL:{self.host},STATUS:TUNNELED,HTTPS REQUEST", self.filtering.results())

    def test_requests_that_cannot_be_read(self):
        for request in (b"GARBAGE\r\n\r\n", b" HTTP/1.0\r\n\r\n", b"GET :80 HTTP/1.0\r\n\r\n",
                        b"GET / HTTP/1.1\r\n\r\n", b"GET /x\r\nHost: localhost\r\n\r\n",
                        b"GET http:// HTTP/1.0\r\n\r\n", b"A" * 15 + b" http://h/ HTTP/1.1\r\nHost: h\r\n\r\n"):
            with self.subTest(request):
                answer = self.filtering.exchange(request)
                self.assertEqual(answer, b"") if self.of_old else self.assert_page(answer, "error", "The browser")


class PagesOfOld(Pages):
    of_old = True
