"""The daemon itself: what it checks, how it loads anew and ends, and the clients that it keeps waiting or refuses."""
import contextlib
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time

from harness import NETSIFTD, PATIENCE, TOP, Case, Filter, read_all, scratch_folder, stop, wait_until

ASK = b"GET http://ads.example/ HTTP/1.1\r\nHost: ads.example\r\nConnection: close\r\n\r\n"
REFUSE = '[[access]]\nnetwork = "127.0.0.0/8"\nlevel = 3\n'
REFUSAL = "The computer 127.0.0.1 may not use the web at this time."


class Daemon(Case):
    @staticmethod
    def generation(filtering):
        """The process of the loading that serves: the daemon's latest child."""
        daemon = filtering.process.pid
        return int(pathlib.Path(f"/proc/{daemon}/task/{daemon}/children").read_text().split()[-1])

    def test_it_loads_anew_when_all_is_in_order_and_else_serves_on_as_before(self):
        filtering = self.filter()
        config, cache = filtering.root / "test.toml", filtering.root / "opt/Velmora/var/nscache.db"
        good = config.read_text()
        cache.write_bytes(b"verdicts")
        filtering.reload(REFUSE + "[htpp]\n", "htpp: unknown key")
        filtering.await_said("the configuration and lists in use stay")
        config.write_text(good)
        (filtering.etc / "whitelist.dom").rename(filtering.etc / "kept")
        filtering.reload("", "whitelist.dom: cannot be read")
        (filtering.etc / "kept").rename(filtering.etc / "whitelist.dom")
        self.assertEqual(cache.read_bytes(), b"verdicts")  # only what is loaded makes them stale
        with filtering.connect() as running:
            wait_until(filtering.connections, "the connection's process")
            filtering.reload(REFUSE)
            self.assertNotEqual(cache.read_bytes(), b"verdicts")
            self.assert_page(filtering.exchange(ASK), "error", REFUSAL)
            running.sendall(ASK)
            self.assertIn(b"\r\nContent-Length: 0\r\n", read_all(running))  # it keeps what it began with
        os.kill(self.generation(filtering), signal.SIGKILL)
        filtering.await_said("the serving process has ended (signal 9); another is started", "serving again")
        self.assert_page(filtering.exchange(ASK), "error", REFUSAL)

    def test_a_killed_generation_leaves_neither_its_count_nor_its_scan_files(self):
        filtering = self.filter({"listen.max_connections": 1, "scanning.scan": True})
        left = filtering.spool / f"scanfile.{filtering.process.pid + 2 ** 22}"  # beyond any process's number
        with filtering.connect():
            wait_until(filtering.connections, "the connection's process")
            left.touch()
            os.kill(self.generation(filtering), signal.SIGKILL)
            filtering.await_said("another is started", "serving again")
        self.assert_page(filtering.exchange(ASK.replace(b"ads.example", b"localhost:25")), "block")
        self.assertFalse(left.exists())
        left.touch()
        filtering.reload()
        self.assertFalse(left.exists())

    def test_what_cannot_be_loaded_cuts_no_list_and_holds_up_no_further_loading(self):
        filtering = self.filter({"service.load_seconds": 3, "log.debug_level": 1})
        config, etc = filtering.root / "test.toml", filtering.etc
        source, made = etc / "sample.url.orig", etc / "sample.url"
        shipped, kept, before = config.read_text(), source.read_text(), made.read_bytes()

        def fails(*said):
            filtering.output.write_text("")  # the daemon appends
            filtering.process.send_signal(signal.SIGHUP)
            filtering.await_said("the configuration and lists in use stay", *said)

        source.write_text("".join(f"{i}\n" for i in range(3_000_000)))
        fails("loading took longer than service.load_seconds and was given up")
        source.write_text(kept)
        self.assertEqual(made.read_bytes(), before)
        for path in (config, etc / "sample.phrase", etc / "popup.dom"):
            path.rename(etc / "kept")
            os.mkfifo(path)
            fails(f"{path}: is a pipe or device")
            (etc / "kept").rename(path)
        config.write_text("# nothing\n")
        fails(f"{config}: holds no setting")
        config.write_text(shipped)
        source.write_text(kept + "added.example/page\n")
        filtering.reload()
        self.assertIn(b"added.example/page\n", made.read_bytes())
        self.assertFalse(list(etc.glob("*.new")) or (filtering.run / "loading").exists())

    def test_an_access_level_may_switch_filtering_off(self):
        filtering = self.filter({"upstream.timeout": 1})
        filtering.reload(REFUSE.replace("3", "1"))
        self.assert_page(filtering.fetch("http://localhost:25/"), "error", "No connection to localhost")

    def test_it_does_not_start_with_a_fault(self):
        with self.assertRaisesRegex(AssertionError, r"(?s)ended with 2:.*listen.drain_seconds: expected whole number"):
            self.filter({"listen.drain_seconds": "x"})

    def test_clients_beyond_the_limit_wait_and_the_end_is_bounded(self):
        filtering = self.filter({"listen.max_connections": 1, "listen.drain_seconds": 1})
        with filtering.connect() as first, filtering.connect() as second:
            second.sendall(ASK)
            second.settimeout(0.5)
            self.assertRaises(TimeoutError, second.recv, 1)
            first.close()
            second.settimeout(PATIENCE)
            self.assertIn(b"HTTP/1.1 ", read_all(second))
            filtering.await_said("listen.max_connections is reached: 1 client had to wait")
        wait_until(lambda: not filtering.connections(), "the connections' processes to end")
        with filtering.connect() as idle:
            wait_until(filtering.connections, "the connection's process")
            told = time.monotonic()
            stop(filtering.process)
            self.assertTrue(0.9 < time.monotonic() - told < 8)
            self.assertEqual(idle.recv(1), b"")

    def test_a_refused_client_gets_ten_seconds_for_its_head_and_leaves_nothing_in_the_log(self):
        filtering = self.filter()
        filtering.reload(REFUSE)
        self.assert_page(filtering.exchange(b"x" * 100_000), "error", REFUSAL)  # closing over unread bytes resets it
        with filtering.connect() as dribbler, filtering.connect() as polite:
            for piece in (b"HEAD http://forged.example/\033[2J HTTP/1.1\r", b"\n\r", b"\n"):
                polite.sendall(piece)
                time.sleep(0.1)
            self.assertRegex(read_all(polite), rb"(?s)^HTTP/1.1 403 .*\r\n\r\n$")
            began = time.monotonic()
            with contextlib.suppress(OSError):
                while time.monotonic() < began + PATIENCE:
                    dribbler.sendall(b"x")
                    time.sleep(0.3)
            wait_until(lambda: not filtering.connections(), "the processes of clients that do not close to end")
            self.assertLess(time.monotonic() - began, 18)
        self.assertIn("Client IP:127.0.0.1,STATUS:BLOCKED,Access List:level 3", filtering.lines())
        self.assertNotIn("forged", "".join(filtering.lines()))


class Check(Case):
    def setUp(self):
        self.root = scratch_folder()
        self.etc = self.root / "opt/Velmora/etc/netsift"
        subprocess.run([TOP / "scripts/layout.sh", self.root], check=True)

    def check(self, configuration, *arguments):
        config = self.root / "check.toml"
        config.write_text(configuration)
        return subprocess.run([NETSIFTD, "--check", "--config", config, "--root", self.root, *arguments],
                              capture_output=True, text=True, check=False)

    def problems(self, configuration):
        """What --check says, each as "severity file line message"."""
        done = self.check(configuration, "--json")
        found = json.loads(done.stdout)
        self.assertEqual(done.returncode, 0 if found["ok"] else 2)
        return [f"{p['severity']} {pathlib.Path(p['file']).name} {p.get('line', 0)} {p['message']}"
                for p in found["problems"]]

    def test_each_file_that_is_missing_or_wrong_is_named(self):
        configuration = """lists.category = [{name = "Sample", file = "sample"}]
            content.category = [{name = "Sample", phrases = "sample"}]
            popups = {block = true, script = "script.html"}
            scanning = {scan = true, second_engine = false, skip_types = true, spool_folder = "/tmp"}"""
        shutil.rmtree(self.root / "var")  # a start can make it
        (self.etc / "script.html").write_text("<script>")
        (self.etc / "viruswhite.conf").write_text("image/\n")
        for name, content, expected in (
                ("whitelist.dom", None, "error whitelist.dom 0 cannot be read: No such file or directory"),
                ("adserver.url.orig", None, "error adserver.url 0 does not exist, nor both .url.orig and .phrase"),
                ("sample.phrase", "", "warning sample.phrase 0 is empty: it judges nothing, and neither does the last"),
                ("script.html", None, "error script.html 0 cannot be read"),
                ("script.html", "", "error script.html 0"),
                ("template", None, "error template 0 cannot be read"),
                ("template", "", "error template 0 is empty"),
                ("template.htm", os.mkdir, "error template.htm 0 is a folder; put a file in its place"),
                ("errortemplate.htm", os.mkfifo, "error errortemplate.htm 0 is a pipe or device"),
                ("adserver.phrase", os.mkfifo, "error adserver.phrase 0 is a pipe or device"),
                ("script.html", os.mkfifo, "error script.html 0 is a pipe or device"),
                ("popup.dom", "fine.example\nhttp.example/path\n", 'warning popup.dom 2 a domain has no "/"'),
                ("popup.url.orig", "a\n\nhttp://b/\n", "warning popup.url.orig 3 an entry begins with the host"),
                ("popup.url.orig", "x.example", "warning popup.url.orig 1 the last line has no line end"),
                ("viruswhite.conf", "image/\n\n", "warning viruswhite.conf 2 an empty line exempts everything"),
                ("viruswhite.conf", "image/", "warning viruswhite.conf 1 a last line without a line end is ignored")):
            with self.subTest(name, content=content):
                file, kept = self.etc / name, self.root / "kept"
                file.rename(kept)
                if content is not None:
                    content(file) if callable(content) else file.write_text(content)
                fault, engine = self.problems(configuration)
                self.assertTrue(fault.startswith(expected) and "no engine is selected" in engine, (fault, engine))
                if content == os.mkdir:
                    file.rmdir()
                kept.rename(file)
        self.assertFalse((self.root / "var").exists())  # checking changes nothing

    def test_it_ends_with_what_a_start_would_do(self):
        engine = socket.socket(socket.AF_UNIX)  # hung: its queue takes one more, and it never looks
        self.addCleanup(engine.close)
        engine.bind(str(self.root / "engine"))
        engine.listen(0)
        with socket.socket(socket.AF_UNIX) as queued:
            queued.connect(str(self.root / "engine"))
            for configuration, said in (
                    ("log.ports = true", "everything is in order for a start"),
                    ('http.strict_http = false\ncontent.blocked_types = ["a/X", "a/x"]',
                     "1 warning; a start would go on all the same"),
                    ('content.blocked_types = ["a/X"]', "everything is in order for a start"),
                    (f'scanning = {{scan = true, spool_folder = "/tmp", second_engine_socket = "{self.root}/engine"}}',
                     "1 warning; a start would go on all the same"),
                    ("log.ports = 1\nlog.urls = 2", "2 errors, 0 warnings")):
                self.assertEqual(self.check(configuration).stdout, f"netsiftd: {said}\n", configuration)

    def test_a_start_replaces_no_socket_by_a_link_and_no_cache_that_is_to_be_kept(self):
        cache, link = self.root / "opt/Velmora/var/nscache.db", self.root / "opt/Velmora/var/run/vlcavd.sock"
        link.symlink_to("/old")
        cache.write_bytes(b"noise")
        settings = {"cache.keep_on_load": True, "scanning.scan": True, "scanning.second_engine_socket": "/run/x.ctl"}
        filtering = Filter(self.addCleanup, settings, folder=self.root)
        self.assertIn("nscache.db: warning: is no usable cache database", filtering.output.read_text())
        self.assertEqual((cache.read_bytes(), os.readlink(link)), (b"noise", "/run/x.ctl"))
        link.unlink()
        link.write_text("in place of a socket")
        fault = self.problems('scanning = {scan = true, second_engine_socket = "/run/x.ctl", spool_folder = "/tmp"}')[0]
        self.assertIn("error vlcavd.sock 0 is no link and is left alone", fault)
