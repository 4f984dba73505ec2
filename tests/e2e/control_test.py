"""netsiftctl: what it says of a request is what the daemon does with it."""
import json
import os
import random
import subprocess
from pathlib import Path

from harness import TOP, Case

NETSIFTCTL = os.environ.get("NETSIFTCTL", str(TOP / "build/netsiftctl"))
SEED, COUNT = int(os.environ.get("NETSIFT_SEED", "20261123")), 500
OF_OLD = {"http.strict_http": False, "http.escape_text": False}
LABELS = ("a", "b", "www", "ads", "zonk")
PATHS = ("", "/", "/x", "/x/", "/x/y?ads=1", "/%61/x", "//x", "/A/../x", "/x%2fy", "/zonk.html")


def serve_page(connection):
    """An upstream proxy whose pages are all the same."""
    while head := connection.recv(65536):
        tunnel = head.startswith(b"CONNECT")
        fields = b"" if tunnel else b"X-Site: 1\r\nContent-Length: 2\r\n"
        connection.sendall(b"HTTP/1.1 200 OK\r\n" + fields + (b"\r\n" if tunnel else b"\r\nok"))


class Explained(Case):
    client = None

    def ask(self, filtering, url):
        """The site's page, or the one that says why not, over one connection for as long as that is kept."""
        if not self.client:
            self.client = filtering.connect()
            self.reader = self.client.makefile("rb")
        self.client.sendall(f"GET {url} HTTP/1.1\r\nHost: {url.split('/')[2]}\r\n\r\n".encode())
        head = b""
        while (line := self.reader.readline()).strip():
            head += line
        if b"X-Site" in head:
            return self.reader.read(2)
        page = self.reader.read()
        self.leave()
        return page

    def leave(self):
        if self.client:
            self.reader.close()
            self.client.close()
        self.client = None

    def control(self, filtering, *arguments, given=""):
        """Exit status, standard output and standard error."""
        argv = [NETSIFTCTL, "--root", filtering.root, "--config", filtering.root / "test.toml", *arguments]
        done = subprocess.run(argv, input=given, capture_output=True, text=True)
        self.assertNotRegex(done.stderr, "Sanitizer|runtime error")
        return done.returncode, done.stdout, done.stderr

    def explain(self, filtering, *arguments, given=""):
        status, output, errors = self.control(filtering, "--json", "explain", *arguments, given=given)
        self.assertEqual(errors, "")
        return status, [json.loads(line) for line in output.splitlines()]

    def proxied(self, settings=None, files=None):
        upstream = {"upstream.proxy": f"127.0.0.1:{self.peer(serve_page).port}"}
        return self.filter(upstream | (settings or {}), files)

    def compare(self, settings):
        made = random.Random(SEED)
        hosts = [".".join(made.choices(LABELS, k=made.randrange(1, 4)) + ["test"]) for _ in range(40)] + ["10.1.2.3"]
        urls = [f"http://{made.choice(hosts)}{made.choice(('', '', '', ':8080', ':25'))}{made.choice(PATHS)}"
                for _ in range(COUNT)]
        entries = [f"{made.choice(hosts)}{made.choice(('/x', '', '/a/x', '/x/y?ads=1', '/x*', '*zonk*'))}"
                   for _ in range(20)]
        lists = {"sample": 4, "adserver": 3, "whitelist": 3}
        files = {f"{name}.dom": "".join(f"{host}\n" for host in made.sample(hosts, count))
                 for name, count in lists.items()}
        files |= {f"{name}.url.orig": "".join(f"{entry}\n" for entry in made.sample(entries, count))
                  for name, count in lists.items()}
        filtering = self.proxied(settings, files)
        self.addCleanup(self.leave)
        told = self.explain(filtering, "-", given="\n".join(urls))[1]
        seen = {"allowed": 0, "blocked": 0}
        for url, said in zip(urls, told, strict=True):
            page = self.ask(filtering, url)
            with self.subTest(url, seed=SEED):
                self.assertEqual(said["verdict"], "allowed" if page == b"ok" else "blocked")
                seen[said["verdict"]] += 1
                if said["verdict"] == "blocked" and said["step"] != "ad server":
                    reason = said["reason"] if settings else said["reason"].replace('"', "&quot;")
                    self.assertIn(reason, page.decode())
                if said["step"] in ("ad server", "blacklists"):
                    deciding = [match for match in said["matches"] if match["decisive"]]
                    self.assertEqual(len(deciding), 1)
                    lines = Path(deciding[0]["file"]).read_text(encoding="ascii").split("\n")
                    self.assertEqual(lines[deciding[0]["line"] - 1], deciding[0]["entry"])
        self.assertGreater(min(seen.values()), COUNT / 10)

    def test_as_the_daemon_decides(self):
        self.compare({})

    def test_as_the_daemon_decides_of_old(self):
        self.compare(OF_OLD)

    def test_pages_as_the_daemon_judges_them(self):
        pages = {"two.html": "<p>zonk and zonk", "one.html": "<p>zonk", "split.html": "<p>zo<b>nk</b> zonk",
                 "long.html": "x " * 40_000 + "zonk " + "y " * 40_000 + "zonk", "plain.txt": "zonk <zonk>",
                 "hidden.html": "<!-- zonk zonk --> <p>zonk", "many.html": "z. " * 50_000 + "the end."}

        def serve(connection):
            name = connection.recv(65536).split(b" ")[1].rpartition(b"/")[2].decode()
            kind = "text/plain" if name.endswith("txt") else "text/html"
            head = f"HTTP/1.1 200 OK\r\nContent-Type: {kind}\r\nConnection: close\r\n\r\n"
            connection.sendall((head + pages[name]).encode())
        upstream = {"upstream.proxy": f"127.0.0.1:{self.peer(serve).port}", "content.threshold": 80}
        for settings in ({}, OF_OLD | {"content.match": "bytes"}):
            filtering = self.filter(upstream | settings, {"sample.phrase": '<"z">0\n<zonk>40\n<~>0\n'})
            for name, body in pages.items():
                (filtering.root / name).write_text(body)
                url = f"http://site.test/{name}"
                status, (said,) = self.explain(filtering, url, "--body", filtering.root / name)
                answer = filtering.exchange(f"GET {url} HTTP/1.1\r\nHost: site.test\r\n\r\n".encode())
                with self.subTest(name, **settings):
                    self.assertEqual(status, 0 if body[-9:].encode() in answer else 1)
                    if name == "many.html" and not settings:  # also where a piece of the page ends
                        self.assertEqual([phrase["count"] for phrase in said["phrases"]], [50_000])
                    if said["verdict"] == "blocked":
                        self.assertIn("Sample category", said["reason"])
                        found = [(phrase["phrase"], phrase["weight"], phrase["count"]) for phrase in said["phrases"]]
                        self.assertEqual(found, [("zonk", 40, 2)])
                        self.assertEqual(max(score["score"] for score in said["scores"]), 80)

    def test_places_of_entries(self):
        filtering = self.proxied({"requests.connect_ports": [443]}, {
            "sample.dom": "# format: adblock\n! a comment\n||bad.test^\n", "adserver.phrase": "<banner>1\n<~>0\n",
            "adserver.url.orig": "ads.test/one\n", "whitelist.dom": "good.bad.test\n",
            "sample.url.orig": "ok.test/two\n"})
        for url, code, step, decisive in (
                ("http://bad.test/x", 1, "blacklists", "domain bad.test sample.dom:3"),
                ("http://banner.test/x", 1, "ad server", "pattern banner* adserver.phrase:1"),
                ("ads.test/one", 1, "ad server", "url ads.test/one adserver.url.orig:1"),
                ("http://good.bad.test/", 0, None, "domain good.bad.test whitelist.dom:1"),
                ("http://ok.test//two", 1, "blacklists", "url ok.test/two sample.url.orig:1"),
                ("https://bad.test/", 1, "blacklists", "domain bad.test sample.dom:3"),
                ("https://bad.test:444/", 1, "CONNECT port", None), ("https://ok.test/", 0, None, None)):
            with self.subTest(url):
                status, (said,) = self.explain(filtering, url)
                found = [f"{match['kind']} {match['entry']} {match['file'].rpartition('/')[2]}:{match['line']}"
                         for match in said["matches"] if match["decisive"]]
                self.assertEqual((status, found), (code, [decisive] if decisive else []))
                if step:
                    self.assertEqual(said["step"], step)
        said = self.explain(filtering, "https://ok.test/", "--server-name", "bad.test")
        self.assertEqual((said[0], said[1][0]["sees"]), (1, "the tunnel is closed"))

    def test_people_and_programs(self):
        filtering = self.proxied({}, {"sample.dom": "bad.test\n"})
        before = sorted((file.name, file.stat().st_mtime_ns) for file in filtering.etc.iterdir())
        status, output, _ = self.control(filtering, "explain", "http://bad.test/")
        self.assertEqual(status, 1)
        for part in ("GET http://bad.test/ by 127.0.0.1: blocked\n", "> blacklists          blocks\n",
                     f"> Sample category: domain bad.test  ({filtering.etc}/sample.dom:1)\n"):
            self.assertIn(part, output)
        self.assertNotIn("\033", output)
        self.assertEqual(before, sorted((file.name, file.stat().st_mtime_ns) for file in filtering.etc.iterdir()))
        self.assertEqual(filtering.results(), [])
        for arguments, said in ((("explain", "http://a b/"), "is no URL"), ((), "subcommand"),
                                (("explain", "x.test", "--client", "me"), "no IP address"),
                                (("explain", "x.test", "--body", "/none"), "--body /none: "),
                                (("explain", "x", "--body", filtering.root), "is a folder"),
                                (("explain", "x", "--nothing"), "--nothing")):
            with self.subTest(said):
                status, output, errors = self.control(filtering, *arguments)
                self.assertEqual((status, output), (2, ""))
                self.assertIn(said, errors)
        with open(filtering.root / "test.toml", "a", encoding="ascii") as config:
            config.write('[[access]]\nnetwork = "10.0.0.0/8"\nlevel = 3\n[[access]]\nnetwork = "fd00::/8"\nlevel = 1\n')
        for client, verdict, step in (("10.9.8.7", "blocked", "access"), ("fd00::7", "allowed", "pass everything"),
                                      ("192.0.2.1", "blocked", "blacklists")):
            (said,) = self.explain(filtering, "http://bad.test/", "--client", client)[1]
            self.assertEqual((said["verdict"], said["step"]), (verdict, step))
        self.assertRegex(self.control(filtering, "--version")[1], r"^netsiftctl \d+\.\d+\.\d+\n$")
