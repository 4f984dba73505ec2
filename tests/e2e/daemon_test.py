"""The daemon itself: how it starts, loads anew and ends, and the clients that it keeps waiting or refuses."""
import contextlib
import os
import pathlib
import signal
import time

from harness import PATIENCE, Case, read_all, stop, wait_until

ASK = b"GET http://ads.example/ HTTP/1.1\r\nHost: ads.example\r\nConnection: close\r\n\r\n"
REFUSE = '[[access]]\nnetwork = "127.0.0.0/8"\nlevel = 3\n'
REFUSAL = "127.0.0.1 may not use this proxy at this time"


class Daemon(Case):
    def reload(self, filtering, more, *said):
        """Loads anew with more in the configuration, until the daemon has said all that."""
        before, config = len(filtering.output.read_text()), filtering.root / "test.toml"
        config.write_text(config.read_text() + more)
        filtering.process.send_signal(signal.SIGHUP)
        for part in said:
            wait_until(lambda: part in filtering.output.read_text()[before:], part)

    def test_it_loads_anew_when_all_is_in_order_and_else_serves_on_as_before(self):
        filtering = self.filter()
        config, cache = filtering.root / "test.toml", filtering.root / "opt/Velmora/var/nscache.db"
        good = config.read_text()
        cache.write_bytes(b"verdicts")
        self.reload(filtering, REFUSE + "[htpp]\n", "htpp: unknown key", "the configuration and lists in use stay")
        self.assertEqual(cache.read_bytes(), b"verdicts")  # only what is loaded makes them stale
        config.write_text(good)
        with filtering.connect() as running:
            wait_until(filtering.connections, "the connection's process")
            self.reload(filtering, REFUSE, "configuration and lists loaded anew")
            self.assertNotEqual(cache.read_bytes(), b"verdicts")
            self.assert_page(filtering.exchange(ASK), "error", REFUSAL)
            running.sendall(ASK)
            self.assertIn(b"\r\nContent-Length: 0\r\n", read_all(running))  # it keeps what it began with
        daemon = filtering.process.pid
        servers = pathlib.Path(f"/proc/{daemon}/task/{daemon}/children").read_text().split()
        os.kill(int(servers[-1]), signal.SIGKILL)
        for part in ("the serving process has ended (signal 9); another is started", "serving again"):
            wait_until(lambda: part in filtering.output.read_text(), part)
        self.assert_page(filtering.exchange(ASK), "error", REFUSAL)
        stop(filtering.process)
        self.assertFalse((filtering.run / "netsift.sock").exists())

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
        wait_until(lambda: not filtering.connections(), "the connections' processes to end")
        with filtering.connect() as idle:
            wait_until(filtering.connections, "the connection's process")
            told = time.monotonic()
            stop(filtering.process)
            self.assertTrue(0.9 < time.monotonic() - told < 8)
            self.assertEqual(idle.recv(1), b"")

    def test_a_refused_client_gets_ten_seconds_for_its_head_and_leaves_nothing_in_the_log(self):
        filtering = self.filter()
        self.reload(filtering, REFUSE, "configuration and lists loaded anew")
        self.assert_page(filtering.exchange(b"x" * 100_000), "error", REFUSAL)  # closing over unread bytes would reset it
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
            self.assertLess(time.monotonic() - began, 14)
        self.assertIn("Client IP:127.0.0.1,STATUS:BLOCKED,Access List:level 3", filtering.lines())
        self.assertNotIn("forged", "".join(filtering.lines()))
