"""Processes that serve one connection after another: how many there are and how long, and what they keep."""
import itertools
import os
import pathlib
import random
import re
import select
import signal
import socket
import subprocess

from harness import NETSIFTD, TOP, Road, read_all, wait_until

LIBRARY = pathlib.Path(os.environ.get("NETSIFT_LIBRARY") or pathlib.Path(NETSIFTD).with_name("libnetsift.so"))
MIXED = int(os.environ.get("NETSIFT_MIXED_CONNECTIONS", "250"))  # 20000 for an evening
ONE = {"listen.max_connections": 1, "listen.spare_processes": 1, "listen.connections_per_process": 1_000_000,
       "requests.connect_any_protocol": True}


def lifetimes():
    """The table of every writable variable: its name, without namespaces, and its lifetime."""
    found, lifetime = {}, None
    for line in (TOP / "tests/api/lifetimes.txt").read_text().splitlines():
        if line.startswith("["):
            lifetime = line[1:line.index("]")]
        elif not line.startswith("#"):
            found.update((name, lifetime) for name in line.split())
    return found


def variables():
    """The library's writable variables: name, offset and size."""
    listing = subprocess.check_output(["objdump", "-t", "-C", LIBRARY], text=True)
    for line in listing.splitlines():
        entry = re.match(r"([0-9a-f]{16}) (?:l|g|u)? *O? +\.(?:data|bss)\t([0-9a-f]{16}) +(.*)", line)
        if not entry or re.match(r"(\.hidden )?(__|DW\.ref|completed\.|guard variable|\.data|\.bss)", entry[3]):
            continue
        name = re.sub(r"^\.hidden |\(anonymous namespace\)::|\(.*\)(?=::)|netsift::", "", entry[3])
        yield name, int(entry[1], 16), int(entry[2], 16)


def ticks(process):
    """How often it has slept."""
    return int(re.search(r"\nvoluntary_ctxt_switches:\s(\d+)", pathlib.Path(f"/proc/{process}/status").read_text())[1])


def private(process):
    """KiB of its own."""
    return int(re.search(r"RssAnon:\s+(\d+)", pathlib.Path(f"/proc/{process}/status").read_text())[1])


class Workers(Road):
    settings = {"requests.blocked_ports": [25], "content.blocked_types": ["x-forbidden"], "popups.block": True,
                "requests.block_ip_hosts": True, "requests.allowed_ip_hosts": ["127.0.0.*"],
                "requests.pass_messengers": True, "requests.messenger_urls": ["/gateway.dll  "],
                "content.report_urls": False, "cache.enabled": False}

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        words = random.Random(3)
        cls.origin.put("page.html", b"<html><head></head><body>" + b"plain words " * 3000 + b"</body></html>")
        cls.origin.put("big.bin", words.randbytes(600_000))
        cls.origin.put("x.forbidden", b"x")
        cls.origin.put("words.html", (TOP / "share/site/words.html").read_bytes())

    def kinds(self):
        """Connections of every kind: what the client sends, and what it waits for: the whole answer, the same after
        it has said that it is done, the first bytes, or nothing."""
        head = f"HTTP/1.1\r\nHost: {self.host}:{self.origin.port}\r\n"
        end = "Connection: close\r\n\r\n"
        secret = "".join(random.choices("abcdefgh", k=40))
        kept = f"GET {self.base}/page.html {head}\r\n"
        yield "page", f"GET {self.base}/page.html {head}{end}", "whole"
        yield "kept", kept + f"HEAD {self.base}/page.html {head}{end}", "whole"
        yield "missing", f"GET {self.base}/none?{'s' * 300} {head}{end}", "whole"
        yield "large", f"GET {self.base}/big.bin {head}{end}", "whole"
        yield "left", f"GET {self.base}/big.bin {head}{end}", "begin"
        yield "posted", f"POST {self.base}/post {head}Content-Length: 40\r\n{end}{secret}", None
        yield "half a body", f"POST {self.base}/post {head}Content-Length: 400\r\n{end}{secret}", None
        yield "half a head", f"GET {self.base}/page.html HTTP/1.1\r\nX-Secret: {secret}", "end"
        yield "nonsense", f"\x01 {secret}\r\n\r\n", "end"
        yield "nothing", "", "end"
        yield "port", f"GET http://{self.host}:25/ {head}{end}", "whole"
        yield "type", f"GET {self.base}/x.forbidden {head}{end}", "whole"
        yield "address", f"GET http://127.0.0.1:{self.origin.port}/page.html {head}{end}", "whole"
        yield "address that is not exempt", f"GET http://10.0.0.1/ HTTP/1.1\r\nHost: 10.0.0.1\r\n{end}", "whole"
        yield "words", f"GET {self.base}/words.html {head}{end}", "whole"
        yield "messenger", f"GET {self.base}/gateway.dll {head}{end}", "whole"
        yield "nowhere", f"GET http://127.0.0.1:1/ HTTP/1.1\r\nHost: 127.0.0.1:1\r\n{end}", "whole"
        yield "tunnel", f"CONNECT {self.host}:{self.origin.port} HTTP/1.1\r\n\r\nGET / HTTP/1.0\r\n\r\n", "whole"

    def run_kind(self, filtering, sent, waits):
        """The answer, without what differs from one time to the next."""
        with filtering.connect() as client:
            client.sendall(sent.encode("latin-1"))
            if waits == "end":
                client.shutdown(socket.SHUT_WR)
            if waits == "begin":
                client.recv(1000)
            answer = read_all(client) if waits in ("whole", "end") else b""
        stamp = rb"(#\d+ )?[\d:]{10} [\d:]{8} Netsift\[\d+\](: )?"
        if re.search(stamp, answer):
            answer = re.sub(rb"Content-Length: \d+", b"", answer)
        return re.sub(stamp + rb"|\w+, \d+ \w+ \d+ [\d:]+ GMT", b"", answer)

    def one(self, settings=None):
        filtering = self.filter(ONE | (settings or {}))
        wait_until(lambda: len(filtering.processes()) == 1, "the one process")
        return filtering, filtering.processes()[0]

    def memory(self, process):
        base = next(int(line.split("-")[0], 16) for line in pathlib.Path(f"/proc/{process}/maps").read_text().splitlines()
                    if line.endswith(LIBRARY.resolve().name))
        with open(f"/proc/{process}/mem", "rb") as memory:
            def read(offset, size):
                memory.seek(base + offset)
                return memory.read(size)
            return {(name, offset): read(offset, size) for name, offset, size in variables()}

    def idle(self, process):
        wait_until(lambda: "epoll" in pathlib.Path(f"/proc/{process}/wchan").read_text() or
                   pathlib.Path(f"/proc/{process}/syscall").read_text().startswith("281 "), "it to wait for a client")

    def test_every_writable_variable_has_a_lifetime_and_keeps_it(self):
        table = lifetimes()
        self.assertEqual(sorted({name for name, _, _ in variables()} ^ table.keys()), [])
        filtering, process = self.one({"scanning.scan": True})
        replies = itertools.cycle((b"x: OK\n", b"x: Made.Up FOUND\n"))
        self.peer(lambda asked: asked.recv(300) and asked.sendall(next(replies)), filtering.run / "vlcavd.sock")
        self.idle(process)
        before = self.memory(process)
        for kind, sent, waits in self.kinds():
            self.run_kind(filtering, sent, waits)
            filtering.written(filtering.output)
            self.idle(process)
            after = self.memory(process)
            changed = [name for name, offset in before if before[name, offset] != after[name, offset]]
            self.assertEqual([name for name in changed if table[name] in ("loading", "connection")], [], kind)
        self.assertEqual(filtering.processes(), [process])

    def test_one_process_answers_many_as_one_each_would_and_grows_by_none(self):
        kinds = {kind: (sent, waits) for kind, sent, waits in self.kinds()
                 if not (self.of_old and kind == "half a body")}  # which then waits for an answer
        each = self.filter(ONE | {"listen.connections_per_process": 1})
        expected = {kind: self.run_kind(each, *how) for kind, how in kinds.items()}
        filtering, process = self.one()
        rng = random.Random(MIXED)

        def mix(count):
            for kind in rng.choices(list(kinds), k=count):
                self.assertEqual(self.run_kind(filtering, *kinds[kind]), expected[kind], kind)
            filtering.written(filtering.output)
            self.idle(process)
            return len(os.listdir(f"/proc/{process}/fd")), private(process)
        descriptors, memory = mix(100)
        now_descriptors, now_memory = mix(MIXED)
        self.assertEqual(filtering.processes(), [process])
        self.assertAlmostEqual(now_descriptors, descriptors, delta=4)  # connections kept to sites: four at most
        self.assertLess(now_memory - memory, 20_000 if b"__asan" in LIBRARY.read_bytes() else 300)

    def test_a_process_ends_after_its_connections_and_lines_tell_them_apart(self):
        filtering = self.filter(ONE | {"listen.connections_per_process": 3})
        for _ in range(7):
            self.get("page.html", filtering)
        log = filtering.written(filtering.logs / "netsift-debug.log")
        served = dict(re.findall(r"(#\d+) [\d:]{10} [\d:]{8} Netsift\[(\d+)\]: Client IP is", log))
        self.assertEqual(list(served), [f"#{number}" for number in range(1, 8)])
        processes = list(served.values())
        self.assertEqual([processes.count(each) for each in dict.fromkeys(processes)], [3, 3, 1])

    def test_processes_come_and_go_with_the_load_and_one_is_woken_for_a_client(self):
        filtering = self.filter({"listen.spare_processes": 6, "listen.connections_per_process": 1000})
        wait_until(lambda: len(filtering.processes()) == 6, "the spare processes")
        clients = [filtering.connect() for _ in range(10)]
        wait_until(lambda: len(filtering.processes()) == 16 and len(filtering.connections()) == 10, "more processes")
        clients.pop().close()
        wait_until(lambda: len(filtering.connections()) == 9, "the connection's end")
        os.kill(int(filtering.connections()[0]), signal.SIGKILL)  # costs one connection
        filtering.await_said("ended by signal 9")
        self.assertEqual(sum(not client.recv(1, socket.MSG_DONTWAIT | socket.MSG_PEEK) for client in clients
                             if client.fileno() in self.readable(clients)), 1)
        for client in clients:
            client.close()
        wait_until(lambda: len(filtering.processes()) == 6, "the surplus to end")
        for process in filtering.processes():
            self.idle(process)
        before = {process: ticks(process) for process in filtering.processes()}
        for _ in range(30):
            self.get("page.html", filtering)
        woken = [process for process, count in before.items() if ticks(process) > count]
        self.assertLess(len(woken), 5, "a client wakes them all")

    def readable(self, clients):
        return [client.fileno() for client in select.select(clients, [], [], 0)[0]]


class WorkersOfOld(Workers):
    of_old = True
