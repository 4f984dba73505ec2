"""Tunnels that leave the process that served their request."""
import contextlib
import os
import pathlib
import signal
import socket

from harness import ASK_PORT_25, PATIENCE, Case, read_all, wait_until


class Tunnels(Case):
    settings = {"listen.max_connections": 1, "listen.spare_processes": 1, "requests.connect_any_protocol": True}

    def echoing(self):
        """A peer that says back what it hears, and at the end of it how much that was."""
        def handle(asked):
            asked.settimeout(60)
            count = 0
            while heard := asked.recv(65536):
                count += len(heard)
                asked.sendall(heard)
            asked.sendall(f"<{count}>".encode())
        return self.peer(handle)

    def connect(self, filtering, port):
        client, head = filtering.tunnel(f"localhost:{port}")
        self.assertTrue(head.endswith("\r\n\r\n"))
        return client

    def holder(self, filtering):
        """The one process that holds tunnels now."""
        holders = [pid for pid in filtering.served_by() if filtering.name(pid) == "netsiftd-relay"]
        self.assertEqual(len(holders), 1)
        return int(holders[0])

    def says_back(self, client, text):
        client.sendall(text)
        heard = b""
        while len(heard) < len(text):
            heard += client.recv(65536)
        return heard == text

    def test_a_worker_is_free_while_its_tunnel_goes_on_and_both_ends_are_passed_on(self):
        filtering, peer = self.filter(), self.echoing()
        with self.connect(filtering, peer.port) as first, self.connect(filtering, peer.port) as second:
            self.assertTrue(self.says_back(first, b"one") and self.says_back(second, b"two" * 100_000))
            self.assertIn(b"port 25", filtering.exchange(ASK_PORT_25))
            first.shutdown(socket.SHUT_WR)
            self.assertEqual(read_all(first), b"<3>")
            self.assertTrue(self.says_back(second, b"still"))
        self.assertRegex("\n".join(filtering.lines()), "Client IP:127.0.0.1,URL:localhost,TUNNEL CLOSED,UP:3,DOWN:6,")

    def test_a_change_of_protocol(self):
        def switch(asked):
            asked.recv(1000)
            asked.sendall(b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: upgrade\r\n\r\nready")
            asked.sendall(asked.recv(1000).upper())
        filtering, peer = self.filter(), self.peer(switch)
        with filtering.connect() as client:
            client.sendall(f"GET http://localhost:{peer.port}/ HTTP/1.1\r\nHost: localhost:{peer.port}\r\n"
                           "Connection: Upgrade\r\nUpgrade: websocket\r\n\r\n".encode())
            heard = b""
            while not heard.endswith(b"ready"):
                heard += client.recv(1000)
            self.assertIn(b"port 25", filtering.exchange(ASK_PORT_25))
            client.sendall(b"shout")
            self.assertEqual(client.recv(1000), b"SHOUT")

    def test_a_reload_cuts_none_and_a_crash_is_told_and_made_good(self):
        filtering, peer = self.filter(), self.echoing()
        daemon = filtering.process.pid
        servers = pathlib.Path(f"/proc/{daemon}/task/{daemon}/children")
        with self.connect(filtering, peer.port) as old:
            filtering.reload()
            self.assertTrue(self.says_back(old, b"still there") and len(servers.read_text().split()) == 2)
        wait_until(lambda: len(servers.read_text().split()) == 1, "the generation before to end with its tunnel")
        with self.connect(filtering, peer.port) as lost:
            self.assertTrue(self.says_back(lost, b"x"))
            os.kill(holder := self.holder(filtering), signal.SIGKILL)
            with contextlib.suppress(ConnectionResetError):
                self.assertEqual(lost.recv(1), b"")
        filtering.await_said("holds the tunnels ended by signal 9")
        with self.connect(filtering, peer.port) as next_one:
            next_one.settimeout(PATIENCE)
            self.assertTrue(self.says_back(next_one, b"again") and self.holder(filtering) != holder)
        self.assertRegex("\n".join(filtering.lines()), "TUNNEL CLOSED,UP:11,DOWN:15,")

    def test_without_room_they_stay_with_their_worker(self):
        peer = self.echoing()
        for most in (0, 1):
            filtering = self.filter({"listen.max_connections": 2, "listen.max_tunnels": most})
            clients = []
            for _ in range(most + 1):  # the first counts when it is held
                clients.append(self.connect(filtering, peer.port))
                self.assertTrue(self.says_back(clients[-1], b"x"))
            wait_until(lambda: sum(map(filtering.is_worker, filtering.connections())) == 1, "the one that has no room")
            for client in clients:
                client.close()

    def test_the_end_of_the_daemon_gives_tunnels_their_time(self):
        filtering, peer = self.filter({"listen.drain_seconds": 1}), self.echoing()
        with self.connect(filtering, peer.port) as client:
            self.assertTrue(self.says_back(client, b"x"))
            filtering.process.terminate()
            self.assertTrue(self.says_back(client, b"y"))
            self.assertEqual(client.recv(1), b"")
