"""What a page says: its visible words against a category's threshold."""
from harness import TOP, Road, wait_until

SITE = {name: (TOP / f"share/site/{name}.html").read_bytes() for name in ("words", "hidden")}
CLEAN, OFFENSIVE = 0, 2  # verdicts as the cache keeps them


def page(*paragraphs):
    return "".join(["<html><title>t</title><body>", *(f"<p>{p}</p>" for p in paragraphs), "</body></html>"]).encode()


class Content(Road):
    reason = "The page&#39;s text fits the category &quot;Sample category&quot;."
    settings, in_words = {"content.report_urls": False}, OFFENSIVE  # the latter: where words are matched
    chunks = ()

    def test_what_counts(self):
        for name, content, verdict in (
                ("words.html", SITE["words"], OFFENSIVE),
                ("hidden.html", SITE["hidden"], self.in_words),
                ("below.html", page("snorgle dice and nothing else"), CLEAN),
                ("twice.html", page("snorgle dice, snorgle dice"), OFFENSIVE),
                ("joined.html", page("snor<b>gle d</b>ice", "SNORGLE\n  Dice"), OFFENSIVE),
                *self.chunks,
                ("data.bin", SITE["words"], CLEAN)):
            with self.subTest(name):
                self.origin.put(name, content)
                url, answer = f"{self.host}/{name}", self.filtering.fetch(f"{self.base}/{name}")
                results = [line for line in self.filtering.results() if url in line]
                blocks = [record for record in self.filtering.blocks() if url in record]
                if verdict == OFFENSIVE:
                    self.assert_page(answer, "block", self.reason, url)
                    self.assertEqual(results, [f"URL:{url},STATUS:BLOCKED,Offensive Content:Sample category",
                                               f"URL:{url},STATUS:BLOCKED,offensive content"])
                    self.assertEqual(blocks, [(url, "Sample category", "Offensive Content")])
                else:
                    self.assertEqual((answer.body, results, blocks), (content, [], []))
                key = url if self.of_old else f"{self.host}:{self.origin.port}/{name}"
                self.assertEqual(self.filtering.verdict(key), verdict)

    def test_a_page_that_is_found_out_late(self):
        content = self.origin.put("late.html", page("harmless " * 8000) + SITE["words"])
        answer = self.get("late.html")
        self.assertIn(content[:65536], answer)
        self.assertNotIn(content[-100:], answer)
        self.assertIn(f"URL:{self.host}/late.html,STATUS:BLOCKED,offensive content", self.filtering.results())

    def test_a_condemned_page_joins_the_blacklist(self):
        self.origin.put("reported.html", SITE["words"])
        filtering = self.filter({"content.report_urls": True})
        self.assert_page(filtering.fetch(f"{self.base}/reported.html"), "block", self.reason)
        listed = self.says("Black Listed URL", "on the list of the category").encode()
        wait_until(lambda: listed in filtering.fetch(f"{self.base}/reported.html").body, "the blacklist")
        self.assertEqual((filtering.etc / "sample.reported.url.orig").read_text(), f"{self.host}/reported.html\n")
        filtering.reload()
        filtering.fetch(f"{self.base}/reported.html")
        self.assertTrue(filtering.results()[-1].endswith(",BlackListed:Sample category"))
        self.assertNotIn("reported", (filtering.etc / "sample.url.orig").read_text())


class ContentOfOld(Content):
    of_old, in_words, reason = True, CLEAN, "Offensive content found on the site in category Sample category"
    chunks = ("split.html", page("snorgle dice", "harmless " * 8000, "zibberdy wheel"), CLEAN),  # judged one by one
