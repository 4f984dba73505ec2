"""The request log: a line for every request, whatever became of it, which analysers and JSON's own parser read."""
import datetime
import json
import signal
import socket
import struct
import subprocess
import unittest

from harness import PATIENCE, Case, Nginx, read_all, wait_until


class RequestLog(Case):
    settings = {"log.requests": True, "log.format": "json", "requests.connect_any_protocol": True,
                "listen.spare_processes": 1}

    def setUp(self):
        self.origin = Nginx(self.addCleanup)
        self.base = f"http://localhost:{self.origin.port}"

    def text(self, filtering):
        return filtering.written(filtering.logs / "netsift-requests.log")

    def records(self, filtering, count):
        wait_until(lambda: self.text(filtering).count("\n") >= count, f"{count} lines")
        records = [json.loads(line) for line in self.text(filtering).splitlines()]
        self.assertEqual(len(records), count, records)
        return records

    def ask(self, filtering, target):
        head = b"GET " + target + b" HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"
        return filtering.exchange(head)

    def test_each_fate_has_its_record(self):
        page = self.origin.put("page.html", b"<html><body>A fine page</body></html>")
        self.origin.put("dice.html", b"<html><body>a roulette table</body></html>")
        self.origin.put("x.forbidden", b"x")
        filtering = self.filter({"content.blocked_types": ["x-forbidden"], "log.query": False},
                                {"sample.phrase": "<roulette>200\n"})
        asked = []

        def done(answer):
            """A record comes after the answer, and another process may be quicker with the next."""
            asked.append(answer)
            self.records(filtering, len(asked))
            return answer
        delivered = done(filtering.fetch(f"{self.base}/page.html?q=secret"))
        phrases = done(filtering.fetch(f"{self.base}/dice.html"))
        done(self.ask(filtering, f"{self.base}/x.forbidden".encode()))
        done(self.ask(filtering, b"http://localhost:25/\xff\"\\"))
        done(self.ask(filtering, b"nonsense\x01"))
        tunnel, _ = filtering.tunnel(f"localhost:{self.origin.port}")
        with tunnel:
            tunnel.sendall(b"GET /page.html HTTP/1.0\r\n\r\n")
            through = read_all(tunnel)
        got = self.records(filtering, 6)
        for record in got:
            self.assertLess(abs(datetime.datetime.fromisoformat(record["time"]).timestamp()
                                - datetime.datetime.now().timestamp()), 600)
            self.assertEqual(record["client"], "127.0.0.1")
        brief = [(r["method"], r["verdict"], r.get("block"), r["status"], r["upstream"]) for r in got]
        here = f"localhost:{self.origin.port}"
        self.assertEqual(brief, [("GET", "delivered", None, 200, here), ("GET", "blocked", "phrases", 403, here),
                                 ("GET", "blocked", "type", 403, here), ("GET", "blocked", "port", 403, None),
                                 (None, "error", None, 400, None), ("CONNECT", "tunneled", None, 200, here)])
        self.assertEqual(got[0]["url"], f"{self.base}/page.html", "its query is cut")
        self.assertEqual(got[0]["bytes"], len(delivered.head) + len(page))
        self.assertEqual([got[1][name] for name in ("category", "score", "phrases")],
                         ["Sample category", 200, [{"phrase": "roulette", "weight": 200}]])
        self.assertIn(got[1]["reference"].encode(), phrases.body)
        self.assertEqual(got[5]["url"], here)
        self.assertEqual(got[5]["bytes"] - len(through), len("HTTP/1.1 200 Connection established\r\n\r\n"))

    def test_a_log_that_is_moved_away_is_followed_by_a_new_one(self):
        self.origin.put("page.html", b"page")
        filtering = self.filter()
        log = filtering.logs / "netsift-requests.log"
        filtering.fetch(f"{self.base}/page.html")
        self.records(filtering, 1)
        log.rename(filtering.logs / "old")
        filtering.process.send_signal(signal.SIGUSR1)

        def asked():
            filtering.fetch(f"{self.base}/page.html")
            return log.exists()
        wait_until(asked, "the new log")

    def test_a_client_that_an_access_rule_refuses_and_one_that_leaves(self):
        filtering = self.filter()
        with socket.create_server(("127.0.0.1", 0)) as silent:
            client = filtering.connect()
            where = f"localhost:{silent.getsockname()[1]}"
            client.sendall(f"GET http://{where}/ HTTP/1.1\r\nHost: {where}\r\n\r\n".encode())
            silent.settimeout(PATIENCE)
            with silent.accept()[0]:
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                client.close()
                self.assertEqual(self.records(filtering, 1)[0]["verdict"], "aborted", filtering.results())
        filtering.reload('\n[[access]]\nnetwork = "127.0.0.1"\nlevel = 3\n')
        self.ask(filtering, b"http://localhost/")
        refused = self.records(filtering, 2)[1]
        self.assertEqual([refused[name] for name in ("verdict", "block", "detail", "status")],
                         ["blocked", "access", "level 3", 403])

    def written_as(self, form):
        """Four requests, one of which nobody can read."""
        filtering = self.filter({"log.format": form})
        filtering.fetch(f"{self.base}/page.html?q=a%20b")
        filtering.fetch("http://localhost:25/")
        filtering.fetch(f"{self.base}/missing", "-A", 'an "agent"', "-e", "http://a.example/")
        filtering.exchange(b"nonsense\x01\r\n\r\n")
        wait_until(lambda: self.text(filtering).count("\n") == 4, "four lines")
        return self.text(filtering)

    def analyse(self, text, *command):
        done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""), text)
        return done.stdout

    def test_analysers_read_it(self):
        self.origin.put("page.html", b"page")
        squid, combined = self.written_as("squid"), self.written_as("combined")
        report = self.analyse(squid, "calamaris", "-a", "-f", "squid")
        self.assertRegex(report, r"lines parsed: +lines +4\b")
        self.assertRegex(report, r"invalid lines: +lines +0\b")
        native = ["--log-format=%x.%^ %~%L %h %^/%s %b %m %U %^", "--date-format=%s", "--time-format=%s",
                  "--datetime-format=%s"]
        # It takes no line of the native format whose method is NONE, as squid too has it for what cannot be read.
        for text, form, failed in ((combined, ["--log-format=COMBINED"], 0), (squid, native, 1)):
            report = self.analyse(text, "goaccess", "-", *form, "-o", "json", "--no-progress")
            general = json.loads(report)["general"]
            self.assertEqual((general["total_requests"], general["failed_requests"]), (4, failed), text)


if __name__ == "__main__":
    unittest.main()
