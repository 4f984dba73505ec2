"""Downloads through a real clamd that knows one made-up signature, and through engines that fail."""
import os
import random
import shutil

from harness import HERE, Case, Filter, Nginx, Peer, Squid, scratch_folder, start, stop

MARKED = (HERE.parent.parent / "share/site/marked.txt").read_bytes()


class Scan(Case):
    settings = {}
    host = "localhost"

    @classmethod
    def setUpClass(cls):
        cls.origin = Nginx(cls.addClassCleanup)
        cls.base = f"http://{cls.host}:{cls.origin.port}"

    def scanning(self, settings=None, engine=None):
        """A filter that scans with clamd, or with a scripted engine on either socket."""
        root = scratch_folder()
        run = root / "opt/Velmora/var/run"
        run.mkdir(parents=True)
        if engine:
            name, handler = engine
            Peer(self.addCleanup, handler, str(run / name))
        return Filter(self.addCleanup, self.settings | {"scanning.scan": True} | (settings or {}), folder=root)

    def get(self, filtering, name):
        """All bytes that come back, also where a part of the page was delivered before the block."""
        return filtering.exchange(f"GET {self.base}/{name} HTTP/1.1\r\nHost: {self.host}\r\n\r\n".encode(), end=True)

    def clamd(self, filtering):
        folder, run = filtering.root / "clamd", filtering.root / "opt/Velmora/var/run"
        (folder / "clamd.conf").write_text(f"DatabaseDirectory {folder}/db\nLocalSocket {run}/vlcavd.sock\n"
                                           f"TemporaryDirectory {folder}\nForeground yes\n")
        return start(["clamd", f"--config-file={folder}/clamd.conf"], folder / "log",
                     (run / "vlcavd.sock").exists, self.addCleanup)

    def test_a_real_engine(self):
        filtering = self.scanning()
        engine = self.clamd(filtering)
        clean = self.origin.put("clean.bin", random.Random(5).randbytes(5_000_000))
        self.assertEqual(filtering.fetch(f"{self.base}/clean.bin").body, clean)
        for name, content in (("marked.txt", MARKED), ("late.bin", clean[:4_000_000] + MARKED)):
            self.origin.put(name, content)
            answer = self.get(filtering, name)
            # Where a part was delivered, the page would be taken for the rest of it: StrictHttp closes instead.
            paged = name == "marked.txt" or "http.strict_http" in self.settings
            self.assertEqual(b"Content is infected" in answer, paged)
            self.assertNotIn(MARKED, answer)
            self.assertEqual(filtering.results()[-1],
                             f"Client IP:127.0.0.1,URL:{self.host}/{name},STATUS:BLOCKED,Infected Content:Virus-")
            self.assertEqual(filtering.blocks()[-1], ["127.0.0.1", f"{self.host}/{name}", "Virus", "Infected Content"])
        stop(engine)
        self.assert_page(filtering.fetch(f"{self.base}/marked.txt"), "block")
        self.assertTrue(any("INFECTED(In cache db)" in line for line in filtering.lines()))
        self.assertEqual(filtering.fetch(f"{self.base}/clean.bin").body, clean)  # known clean: nobody is asked
        self.assertEqual([f for f in filtering.spool.iterdir()], [])

    def test_engines_that_fail(self):
        self.origin.put("page.txt", b"text\n" * 100)
        down, error, infected = "Anti Virus Server Not Running", "Error In Scanning For Virus", "Content is infected"
        primary = {"scanning.primary_engine": True, "scanning.second_engine": False}
        for socket_name, reply, expected in (
                (None, b"", down), ("vlcavd.sock", b"", down), ("vlcavd.sock", b"nonsense\n", error),
                ("vlcavd.sock", b"x: lstat() failed ERROR\n", error), ("vlcavd.sock", b"x: OK\n", None),
                ("vlcavd.sock", b"x: Made.Up FOUND\n", infected), ("vlav", b"2 Made.Up\n", infected),
                ("vlav", b"0", None), ("vlav", b"", None), ("vlav", b"32", down), ("vlav", b"8", None)):
            with self.subTest(socket=socket_name, reply=reply):
                def answers(asked, reply=reply):
                    asked.recv(300)
                    asked.sendall(reply)

                engine = socket_name and (socket_name, answers)
                filtering = self.scanning(primary if socket_name == "vlav" else {}, engine)
                answer = filtering.fetch(f"{self.base}/page.txt")
                if expected is None:
                    self.assertEqual(answer.body, b"text\n" * 100)
                else:
                    self.assert_page(answer, "block", expected)
                if socket_name == "vlav" and reply.startswith(b"2"):
                    self.assertIn("Infected Content:Virus-Made.Up", filtering.results()[-1])

    def test_a_scan_folder_that_is_gone(self):
        filtering = self.scanning()
        self.clamd(filtering)
        shutil.rmtree(filtering.spool)
        self.origin.put("marked.txt", MARKED)
        answer = self.get(filtering, "marked.txt")
        self.assertNotIn(MARKED, answer)
        self.assertIn("error creating virus scan file", "\n".join(filtering.lines()))

    def test_a_cache_that_cannot_be_used(self):
        self.origin.put("page.txt", b"text\n")
        for spoil in (lambda cache: cache.unlink(), lambda cache: cache.write_bytes(os.urandom(5000)),
                      lambda cache: os.truncate(cache, 100), lambda cache: os.truncate(cache, 0)):
            filtering = self.filter(self.settings)
            spoil(filtering.cache)
            for _ in range(2):
                self.assertEqual(filtering.fetch(f"{self.base}/page.txt").body, b"text\n")


class ScanOfOld(Scan):
    """The same through an upstream proxy with StrictHttp = 0."""
    host = "origin.test"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.settings = {"http.strict_http": False, "upstream.proxy": f"127.0.0.1:{Squid(cls.addClassCleanup).port}"}
