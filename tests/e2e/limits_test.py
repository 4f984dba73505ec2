"""Clients that hold connections and send nothing, or hold many: what they may keep others from."""
import os
import re
import signal
import socket
import time
from contextlib import closing

from harness import PATIENCE, Case, read_all, serve_nothing, wait_until

TAKEN, TURNED_AWAY = b"HTTP/1.1 204 ", b"HTTP/1.1 429 "
TWO = {"listen.max_connections": 2, "listen.spare_processes": 2}


def bucket(address):
    """Where connections are counted before it is looked whose they are."""
    return ((1 << 32 | int.from_bytes(socket.inet_aton(address), "little")) * 0x9E3779B97F4A7C15 & 2**64 - 1) >> 52


OTHERS = (f"127.{n >> 16}.{n >> 8 & 255}.{n & 255}" for n in range(1 << 16, 1 << 20))


class Limits(Case):
    def setUp(self):
        place = f"127.0.0.1:{self.peer(serve_nothing).port}"
        self.request = f"GET http://{place}/ HTTP/1.1\r\nHost: {place}\r\n\r\n".encode()

    def client(self, filtering, address="127.0.0.1"):
        client = socket.create_connection(("127.0.0.1", filtering.port), PATIENCE, (address, 0))
        self.addCleanup(client.close)
        return client

    def ask(self, client):
        """The status line's begin, of an answer on a connection that stays."""
        client.sendall(self.request)
        return client.recv(65536)[:13]

    @staticmethod
    def is_open(client):
        client.setblocking(False)
        try:
            return client.recv(1) != b""
        except BlockingIOError:
            return True
        finally:
            client.settimeout(PATIENCE)

    def test_one_address_gets_so_many_and_no_more(self):
        filtering = self.filter({"listen.max_connections_per_client": 2, "listen.connections_per_process": 1000})
        held = [self.client(filtering) for _ in range(2)]
        self.assertEqual([self.ask(client) for client in held], [TAKEN] * 2)
        for _ in range(3):
            with closing(self.client(filtering)) as further:
                self.assertTrue(read_all(further).startswith(TURNED_AWAY))
        for address in ("127.0.0.2", next(filter(lambda each: bucket(each) == bucket("127.0.0.1"), OTHERS))):
            self.assertEqual(self.ask(self.client(filtering, address)), TAKEN)
        held.pop().close()
        wait_until(lambda: self.ask(self.client(filtering)) == TAKEN, "room for another")
        self.assertEqual(self.ask(held[0]), TAKEN)
        told = r"max_connections_per_client is reached: \d+ connections? w.* from 127\.0\.0\.1\n"
        wait_until(lambda: re.search(told, filtering.output.read_text()), "that to be told")

    def test_a_killed_worker_gives_back_what_its_client_had(self):
        filtering = self.filter({"listen.max_connections_per_client": 1})
        with closing(self.client(filtering)) as client:
            self.ask(client)
            os.kill(int(filtering.connections()[0]), signal.SIGKILL)
        wait_until(lambda: self.ask(self.client(filtering)) == TAKEN, "room again")

    def test_idle_connections_are_the_first_to_go_when_others_wait(self):
        filtering = self.filter({"listen.max_connections": 4, "listen.spare_processes": 4})
        idle = [self.client(filtering) for _ in range(4)]
        self.assertEqual([self.ask(client) for client in idle], [TAKEN] * 4)
        for reloads in (False, True):  # those of earlier generations too
            if reloads:
                filtering.process.send_signal(signal.SIGHUP)
                wait_until(lambda: "loaded anew" in filtering.output.read_text(), "the lists to be loaded anew")
            began = time.monotonic()
            self.assertEqual(self.ask(self.client(filtering)), TAKEN)
            self.assertLess(time.monotonic() - began, 10)
            self.assertIn(sum(map(self.is_open, idle)), (1, 2, 3) if reloads else (2, 3))

    def test_silent_ones_go_too_and_those_in_use_stay(self):
        filtering = self.filter(TWO)
        began, silent, busy = time.monotonic(), self.client(filtering), self.client(filtering)
        busy.sendall(self.request[:20])
        self.assertEqual(self.ask(self.client(filtering)), TAKEN)
        self.assertGreater(time.monotonic() - began, 0.9)  # until then it is one that has just come
        self.assertEqual(silent.recv(1), b"")
        busy.sendall(self.request[20:])
        self.assertEqual(busy.recv(65536)[:13], TAKEN)

    def test_time_limits_between_requests_and_within_a_head(self):
        filtering = self.filter({"listen.client_idle_seconds": 1, "listen.request_head_seconds": 2})
        idle, slow, began = self.client(filtering), self.client(filtering), time.monotonic()
        slow.sendall(self.request[:-2])
        self.assertEqual(idle.recv(1), b"")
        at_idle = time.monotonic() - began
        self.assertEqual(slow.recv(1), b"")
        self.assertGreater(at_idle, 0.9)
        self.assertGreater(time.monotonic() - began, 1.9)

    def test_a_body_that_drips_does_not_hold_its_place(self):
        length, chunk = b"Content-Length: 4000\r\n\r\n", b"Transfer-Encoding: chunked\r\n\r\n1;x="
        collected = {"requests.block_uploads": True}
        for more, framing in (({}, length), (collected, length), ({}, chunk), (collected, chunk)):
            filtering = self.filter({"listen.request_body_seconds": 1} | more)
            client = self.client(filtering)
            client.sendall(self.request.replace(b"GET", b"PUT", 1)[:-2] + framing)
            with self.assertRaises(OSError):
                for _ in range(400):  # in the pace that ten seconds without a byte would allow, a minute and more
                    client.sendall(b"x")
                    time.sleep(0.05)
        client = self.client(filtering)
        client.sendall(self.request.replace(b"GET", b"PUT", 1)[:-2] + length)
        for _ in range(20):  # slow, but no drip
            client.sendall(b"x" * 200)
            time.sleep(0.1)
        self.assertEqual(client.recv(65536)[:13], TAKEN)

    def test_a_connection_to_a_site_stays_for_the_next_client_and_for_so_long(self):
        opened, ended = [], []

        def count(connection):
            opened.append(connection)
            serve_nothing(connection)
            ended.append(connection)
        place = f"127.0.0.1:{self.peer(count).port}"
        request = f"GET http://{place}/ HTTP/1.1\r\nHost: {place}\r\n\r\n".encode()
        filtering = self.filter({"listen.max_connections": 1, "listen.connections_per_process": 1000,
                                 "upstream.keep_seconds": 2})
        for _ in range(3):
            self.assertTrue(filtering.exchange(request).startswith(TAKEN))
        self.assertEqual(len(opened), 1)
        wait_until(lambda: len(ended) == 1, "the site to be left alone")
