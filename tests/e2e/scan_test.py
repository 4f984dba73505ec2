"""Downloads through a real clamd that knows one made-up signature, and through engines that fail."""
import random
import shutil

from harness import TOP, Road, stop

MARKED = (TOP / "share/site/marked.txt").read_bytes()


class Scan(Road):
    settings = {"scanning.scan": True, "http.keep_alive": False}
    down, failed, infected = "The virus scanner gives no answer", "The file could not be scanned", "A virus was found"

    def test_clamd(self):
        filtering = self.filter()
        engine = filtering.clamd(self.addCleanup)
        clean = self.origin.put("clean.bin", random.Random(5).randbytes(5_000_000))
        self.assertEqual(filtering.fetch(f"{self.base}/clean.bin").body, clean)
        for name, content in (("marked.txt", MARKED), ("late.bin", clean[:4_000_000] + MARKED)):
            self.origin.put(name, content)
            answer, url = self.get(name, filtering), f"{self.host}/{name}"
            # Where a part was delivered, the page would be taken for the rest of it: StrictHttp closes instead.
            self.assertEqual(self.infected.encode() in answer, name == "marked.txt" or self.of_old)
            self.assertNotIn(MARKED, answer)
            self.assertEqual(filtering.results()[-1], f"URL:{url},STATUS:BLOCKED,Infected Content:Virus-")
            self.assertEqual(filtering.blocks()[-1], (url, "Virus", "Infected Content"))
        self.assertEqual(list(filtering.spool.iterdir()), [])
        self.origin.put("new.txt", MARKED)
        shutil.rmtree(filtering.spool)
        self.assertNotIn(MARKED, self.get("new.txt", filtering))
        self.assertIn("error creating virus scan file", filtering.lines())

        stop(engine)  # what is known is not asked about
        self.assertEqual(filtering.fetch(f"{self.base}/clean.bin").body, clean)
        self.assert_page(filtering.fetch(f"{self.base}/marked.txt"), "block")
        self.assertIn(f"URL:{self.host}/marked.txt,STATUS:BLOCKED,INFECTED(In cache db)", filtering.lines())

    def test_what_engines_reply(self):
        no_status = "" if self.of_old else self.down
        for primary, socket_name, replies in (
                (False, "vlcavd.sock", {b"": self.down, b"x: lstat() failed ERROR\n": self.failed}),
                (True, "vlav", {b"32": self.down, b"0": "", b"": no_status, b"hello": no_status,
                                b"2 Made.Up\n": self.infected})):
            filtering = self.filter({"scanning.primary_engine": primary, "scanning.second_engine": not primary})
            self.peer(lambda asked: asked.recv(300) and asked.sendall(reply), filtering.run / socket_name)
            for number, (reply, expected) in enumerate(replies.items()):
                page = self.origin.put(f"{number}.txt", b"text\n")
                answer = filtering.fetch(f"{self.base}/{number}.txt")
                self.assert_page(answer, "block", expected) if expected else self.assertEqual(answer.body, page)
        self.assertIn("Infected Content:Virus-Made.Up", filtering.results()[-1])
        self.assertEqual(filtering.blocks()[-1][2], self.says("Infected Content", "Infected Content: Made.Up"))


class ScanOfOld(Scan):
    of_old = True
    down, failed, infected = "Anti Virus Server Not Running", "Error In Scanning For Virus", "Content is infected"
