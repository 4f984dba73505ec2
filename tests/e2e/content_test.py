"""What a page says: its visible words against a category's threshold."""
import os

from harness import HERE, Case, Nginx, Squid, wait_until

SITE = HERE.parent.parent / "share/site"
WORDS = "flumblewick tournament, snorgle dice, zibberdy wheel"  # 160 of the 100 that the sample category allows
REASON = "Offensive content found on the site in category Sample category"


def page(*paragraphs):
    return ("<html><title>t</title><body>" + "".join(f"<p>{p}</p>" for p in paragraphs) + "</body></html>").encode()


class Content(Case):
    settings = {}
    host = "localhost"

    @classmethod
    def setUpClass(cls):
        cls.origin = Nginx(cls.addClassCleanup)
        cls.base = f"http://{cls.host}:{cls.origin.port}"

    def filter(self, settings=None, **more):
        return super().filter(self.settings | {"content.report_urls": False} | (settings or {}), **more)

    def test_the_sample_pages(self):
        filtering = self.filter()
        for name in ("index", "words", "hidden"):
            self.origin.put(f"{name}.html", (SITE / f"{name}.html").read_bytes())
            answer = filtering.fetch(f"{self.base}/{name}.html")
            if name == "words":
                self.assert_page(answer, "block", REASON, f"{self.host}/words.html")
            else:
                self.assertEqual(answer.body, (SITE / f"{name}.html").read_bytes())
        url = f"{self.host}/words.html"
        self.assertEqual(filtering.results(),
                         [f"Client IP:127.0.0.1,URL:{url},STATUS:BLOCKED,Offensive Content:Sample category",
                          f"Client IP:127.0.0.1,URL:{url},STATUS:BLOCKED,offensive content"])
        self.assertEqual(filtering.blocks(), [["127.0.0.1", url, "Sample category", "Offensive Content"]])

    def test_what_counts(self):
        filtering = self.filter()
        for name, content, blocked in (
                ("all.html", page(WORDS), True),
                ("below.html", page("snorgle dice and nothing else"), False),
                ("twice.html", page("snorgle dice, snorgle dice"), True),
                ("joined.html", page("snor<b>gle d</b>ice", "SNORGLE\n  Dice"), True),
                ("white.html", page(f"<font color=white>{WORDS}</font>"), False),
                ("data.bin", page(WORDS), False)):
            with self.subTest(name):
                self.origin.put(name, content)
                answer = filtering.fetch(f"{self.base}/{name}")
                self.assert_page(answer, "block", REASON) if blocked else self.assertEqual(answer.body, content)

    def test_settings_that_let_it_pass(self):
        content = self.origin.put("pass.html", page(WORDS, WORDS))
        for settings, files in (({"content.threshold": 161, "content.count_once": True}, {}),
                                ({"content.check_phrases": False}, {}),
                                ({}, {"whitelist.url.orig": f"{self.host}/pass.html\n"})):
            with self.subTest(settings=settings, files=files):
                self.assertEqual(self.filter(settings, files=files).fetch(f"{self.base}/pass.html").body, content)

    def test_each_chunk_is_judged_by_itself(self):
        filler = "harmless " * 8000  # more than a chunk of 64 KB
        filtering = self.filter()
        self.origin.put("split.html", page("snorgle dice", filler, "zibberdy wheel"))
        self.assertNotIn(b"This page is blocked", filtering.fetch(f"{self.base}/split.html").body)
        self.assertEqual(filtering.results(), [])
        late = self.origin.put("late.html", page(filler, WORDS))
        request = f"GET {self.base}/late.html HTTP/1.1\r\nHost: {self.host}\r\n\r\n"
        answer = filtering.exchange(request.encode(), end=True)
        self.assertIn(late[:65536], answer)
        self.assertNotIn(late[-100:], answer)
        self.assertEqual(len(filtering.results()), 2)

    def test_the_verdict_is_remembered_until_the_page_changes(self):
        filtering = self.filter()
        file = self.origin.www / "kept.html"
        for content, expected in ((WORDS, REASON), (WORDS, "Offensive content.(In cache db)"), ("nothing", None)):
            file.write_bytes(page(content))
            changed = 1_700_000_000 + (content == "nothing")
            os.utime(file, (changed, changed))
            answer = filtering.fetch(f"{self.base}/kept.html")
            if expected is None:
                self.assertEqual(answer.body, page(content))
            else:
                self.assert_page(answer, "block")
                self.assertIn(expected, "\n".join(filtering.lines()) + answer.body.decode())

    def test_a_condemned_page_joins_the_blacklist(self):
        self.origin.put("reported.html", page(WORDS))
        filtering = self.filter({"content.report_urls": True})
        self.assert_page(filtering.fetch(f"{self.base}/reported.html"), "block", REASON)
        wait_until(lambda: f"{self.host}/reported.html\n" in (filtering.etc / "sample.url.orig").read_text(), "the report")
        wait_until(lambda: b"Black Listed URL" in filtering.fetch(f"{self.base}/reported.html").body, "the blacklist")


class ContentOfOld(Content):
    """The same through an upstream proxy with StrictHttp = 0."""
    host = "origin.test"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        squid = Squid(cls.addClassCleanup)
        cls.settings = {"http.strict_http": False, "upstream.proxy": f"127.0.0.1:{squid.port}"}
