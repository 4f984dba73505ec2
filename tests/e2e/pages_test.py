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

    def test_post_of_a_megabyte(self):
        body = self.origin.put("upload", random.Random(1).randbytes(1 << 20))
        answer = self.filtering.fetch(f"{self.base}/post", "--data-binary", f"@{self.origin.www}/upload")
        self.assertEqual((answer.code, answer.body), (200, b"taken\n"))
        self.assertIn(body, self.origin.bodies())

    def test_https_is_relayed(self):
        page = self.origin.put("secret.txt", b"s" * 100_000)
        url = f"https://{self.host}:{self.origin.tls_port}/secret.txt"
        self.assertEqual(self.filtering.fetch(url, "--cacert", self.origin.folder / "cert.pem").body, page)
        self.assertIn(f"URL:{self.host},STATUS:TUNNELED,HTTPS REQUEST", self.filtering.results())


class PagesOfOld(Pages):
    of_old = True
