"""The figures: promtool reads them, they add up over processes, and neither a killed process nor a slow reader matters."""
import os
import re
import signal
import socket
import subprocess
import unittest

from harness import Case, accepts, ask, read_all, wait_until


class Metrics(Case):
    settings = {"metrics.listen": "127.0.0.1:0", "listen.spare_processes": 2}

    def get(self, filtering, path="/metrics", method="GET"):
        port = int(re.search(r"figures on \S+:(\d+)\n", filtering.output.read_text())[1])
        wait_until(lambda: accepts(port), "the figures")
        return ask(port, f"{method} {path} HTTP/1.1\r\nHost: x\r\n\r\n".encode()).decode()

    def figures(self, filtering):
        head, _, body = self.get(filtering).partition("\r\n\r\n")
        self.assertIn(f"Content-Length: {len(body.encode())}\r\n", head + "\r\n")
        return body, {name: float(value) for name, value in re.findall(r"^(\w\S*) (\S+)$", body, re.M)}

    def test_what_is_served_is_counted_and_a_killed_process_loses_nothing(self):
        def answer(asked):
            asked.recv(1000)
            asked.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5\r\nConnection: close\r\n\r\nplain")
        filtering, site = self.filter(), self.peer(answer)
        for _ in range(3):
            filtering.fetch(f"http://localhost:{site.port}/")
        blocked = filtering.exchange(b"GET http://localhost:25/ HTTP/1.1\r\nHost: localhost:25\r\n\r\n")
        filtering.exchange(b"GET http://blorp.example.net/ HTTP/1.1\r\nHost: blorp.example.net\r\n\r\n")
        idle = filtering.connect()
        self.addCleanup(idle.close)
        wait_until(lambda: self.figures(filtering)[1]["netsift_connections"] == 1, "the idle connection")
        text, before = self.figures(filtering)
        done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""), text)
        self.assertEqual(before['netsift_requests_total{outcome="delivered"}'], 3)
        self.assertEqual(before['netsift_blocks_total{kind="port"}'], 1)
        self.assertEqual(before["netsift_request_duration_seconds_count"],
                         sum(n for name, n in before.items() if name.startswith("netsift_requests_total")))
        self.assertGreater(before["netsift_client_bytes_total"], len(blocked))
        self.assertGreater(before['netsift_list_entries{list="whitelist"}'], 0)
        self.assertEqual((before["netsift_generation"], before["netsift_last_load_successful"]), (1, 1))
        for worker in filtering.processes():
            os.kill(int(worker), signal.SIGKILL)
        wait_until(lambda: self.figures(filtering)[1]["netsift_connections"] == 0, "the killed one's connection to be over")
        idle.close()
        filtering.reload()
        after = self.figures(filtering)[1]
        self.assertEqual(after["netsift_generation"], 2)
        for name, count in before.items():
            if name.endswith("_total") or "_total{" in name:
                self.assertGreaterEqual(after[name], count, name)

    def test_health_other_paths_and_slow_readers(self):
        filtering = self.filter()
        port = int(re.search(r"figures on \S+:(\d+)\n", filtering.output.read_text())[1])
        slow = [socket.create_connection(("127.0.0.1", port)) for _ in range(20)]
        for asked in slow[:10]:
            asked.sendall(b"GET /metrics HT")
        wait_until(lambda: "200 OK" in self.get(filtering, "/health"), "the first process")
        self.assertRegex(self.get(filtering, "/health"), r"^HTTP/1.1 200 OK\r\n(?s:.*)\r\n\r\nok\n$")
        for path, method, status in (("/", "GET", 404), ("/metrics", "POST", 405), ("/metrics?x=1", "GET", 200)):
            self.assertTrue(self.get(filtering, path, method).startswith(f"HTTP/1.1 {status} "), path)
        self.assertTrue(self.get(filtering, "/metrics", "HEAD").endswith("\r\n\r\n"))
        slow[0].sendall(b"TP/1.1\r\n\r\n")
        self.assertIn(b"netsift_workers ", read_all(slow[0]))
        for asked in slow:
            asked.close()
        filtering.reload('\n[listen]\nno = 1\n', "not loaded")
        self.assertEqual(self.figures(filtering)[1]["netsift_last_load_successful"], 0)


if __name__ == "__main__":
    unittest.main()
