"""IPv6: clients that come over it, alone and beside those of IPv4, and sites and proxies that are reached over it."""
import socket
import subprocess
import unittest
from contextlib import closing

from harness import NETSIFTD, PATIENCE, Case, Filter, Peer, read_all, serve_nothing, wait_until

FOUR, SIX, BOTH = "127.0.0.1:0", "[::1]:0", ("127.0.0.1:0", "[::1]:0")


def has_six():
    try:
        socket.create_server(("::1", 0), family=socket.AF_INET6).close()
        return True
    except OSError:
        return False


def ask(site, *more):
    return "\r\n".join((f"GET http://{site}/ HTTP/1.1", f"Host: {site}", *more, "", "")).encode()


@unittest.skipUnless(has_six(), "the machine has no ::1")
class Clients(Case):
    def listening(self, listen, settings=None):
        return Filter(self.addCleanup, self.settings | (settings or {}), listen=listen)

    def client(self, filtering, place):
        client = socket.create_connection((("127.0.0.1", "::1")[place], filtering.ports[place]), PATIENCE)
        self.addCleanup(client.close)
        return client

    def answer(self, filtering, place, request):
        with closing(self.client(filtering, place)) as client:
            client.sendall(request)
            client.shutdown(socket.SHUT_WR)
            return read_all(client)

    def test_both_are_served_logged_and_judged_by_rules_of_their_own(self):
        filtering, blocked = self.listening(BOTH), ask("blocked.example", "Connection: close")
        for place in (0, 1):
            self.assert_page(self.answer(filtering, place, blocked), "block", "blocked.example")
        lines = [line for line in filtering.lines() if "BlackListed" in line]
        self.assertEqual([line.split(",")[0] for line in lines], ["Client IP:127.0.0.1", "Client IP:::1"])
        self.assertIn('" "::1" "blocked.example', filtering.written(filtering.logs / "netsift-access.log"))
        filtering.reload('[[access]]\nnetwork = "::/64"\nlevel = 3\n')
        self.assert_page(self.answer(filtering, 0, blocked), "block")
        self.assert_page(self.answer(filtering, 1, blocked), "error", "The computer ::1 may not use the web at this time.")
        self.assertIn("Client IP:::1,STATUS:BLOCKED,Access List:level 3", filtering.lines())
        with open(filtering.root / "test.toml", "r+", encoding="ascii") as config:
            text = config.read().replace("strict_http = true", "strict_http = false")
            config.seek(0)
            config.write(text)
        filtering.reload("", "[::1]:0 takes IPv6 clients, which are not served while strict_http is off")
        self.assert_page(self.answer(filtering, 0, blocked), "block")

    def test_places_are_shared_and_whoever_waits_at_either_gets_one(self):
        filtering = self.listening(BOTH, {"listen.max_connections": 2, "listen.spare_processes": 2})
        request = ask(f"127.0.0.1:{self.peer(serve_nothing).port}")
        for places in ((0, 0, 1, 1), (1, 1, 0, 0)):  # each of the latter takes the place of one that is idle
            for place in places:
                client = self.client(filtering, place)
                client.sendall(request)
                self.assertEqual(client.recv(65536)[:13], b"HTTP/1.1 204 ")

    def test_where_many_wait_at_one_the_other_has_its_turn(self):
        asked = []

        def note(connection):
            asked.append(connection.recv(65536).split()[1])
            connection.sendall(b"HTTP/1.1 204 No Content\r\n\r\n")

        site = f"127.0.0.1:{self.peer(note).port}"
        for each in (1, 1000):
            settings = {"listen.max_connections": 1, "listen.spare_processes": 1, "listen.connections_per_process": each}
            filtering = self.listening(BOTH, settings)
            held = self.client(filtering, 0)
            held.sendall(b"GET ")
            wait_until(filtering.connections, "the connection's process")
            waiting = [self.client(filtering, place) for place in (0, 0, 0, 0, 1)]
            for number, client in enumerate(waiting):
                client.sendall(ask(site, "Connection: close").replace(b"/ HTTP", b"/%d HTTP" % number))
            held.close()
            for client in waiting:
                self.assertIn(b" 204 ", read_all(client))
            self.assertLess(asked.index(b"/4"), 3)
            asked.clear()

    def test_an_address_gets_so_many_and_no_more(self):
        filtering = self.listening((SIX,), {"listen.max_connections_per_client": 1})
        place = ("::1", filtering.port)
        with socket.create_connection(place, PATIENCE):
            wait_until(filtering.connections, "the connection's process")
            with socket.create_connection(place, PATIENCE) as further:
                self.assertTrue(read_all(further).startswith(b"HTTP/1.1 429 "))
        filtering.await_said(" from ::1\n")

    def test_the_same_port_of_both_families_and_the_configured_list(self):
        filtering = self.listening(("0.0.0.0:0",))
        filtering.process.terminate()
        filtering.process.wait(PATIENCE)
        places = [f"0.0.0.0:{filtering.port}", f"[::]:{filtering.port}"]
        text = (filtering.root / "test.toml").read_text().replace('"127.0.0.1:8080"', str(places))
        (filtering.root / "test.toml").write_text(text)
        argv = [NETSIFTD, "--config", filtering.root / "test.toml", "--root", filtering.root]
        with subprocess.Popen(argv, stderr=subprocess.PIPE, text=True) as daemon:
            self.addCleanup(daemon.kill)
            for place in places:
                self.assertEqual(daemon.stderr.readline(), f"netsiftd: listening on {place}\n")
            for address in ("127.0.0.1", "::1"):
                with socket.create_connection((address, filtering.port), PATIENCE) as client:
                    client.sendall(ask("blocked.example", "Connection: close"))
                    self.assert_page(read_all(client), "block")
            daemon.terminate()


@unittest.skipUnless(has_six(), "the machine has no ::1")
class Sites(Case):
    def setUp(self):
        self.seen = []

        def serve_once(connection):
            self.seen.append(connection.recv(65536).split(b"\r\n")[0].decode())
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok")

        self.site = Peer(self.addCleanup, serve_once, place=("::1", 0))
        self.host = f"[::1]:{self.site.port}"

    def test_tunnels_lead_there_and_an_address_that_nobody_has_is_said(self):
        filtering = self.filter({"requests.connect_any_protocol": True})
        answer = filtering.exchange(f"CONNECT {self.host} HTTP/1.1\r\nHost: {self.host}\r\n\r\nHELLO".encode())
        self.assertTrue(answer.endswith(b"\r\n\r\nok"), answer)
        self.assertEqual(self.seen, ["HELLO"])
        self.assertIn("Client IP:127.0.0.1,URL:[::1],STATUS:TUNNELED,HTTPS REQUEST", filtering.lines())
        self.assert_page(filtering.exchange(ask("[::2]:9")), "error", "No connection to [::2], port 9")

    def test_an_upstream_proxy(self):
        filtering = self.filter({"upstream.proxy": self.host})
        self.assertTrue(filtering.exchange(ask("site.example", "Connection: close")).endswith(b"\r\n\r\nok"))
        self.assertEqual(self.seen, ["GET http://site.example/ HTTP/1.1"])
