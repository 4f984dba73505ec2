#!/usr/bin/env python3
"""What tunnels cost: memory of an idle one, the time of a new connection while many are held, and bytes through one.

    NETSIFTD=build/netsiftd bench/tunnels.py [TUNNELS]

netsiftd, netsiftd with max_tunnels = 0 (each tunnel keeps a process; 100 are held) and squid, on loopback. Memory is the
growth of Pss over all processes of a proxy (smaps_rollup); the kernel's own for sockets is not in it. The time is that
of a request for a page of 1 KB on a connection of its own, the median of 200. Needs the packages of the sections run,
upstream and test; a Release build without sanitizers."""
import os
import pathlib
import resource
import signal
import socket
import statistics
import sys
import time
from contextlib import ExitStack, closing

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
from harness import Filter, Nginx, Squid, read_all  # noqa: E402

AMOUNT = 1_000_000_000
KEPT = 100  # less than one address may have


def start_site(cleanup, serve):
    """A site in a process of its own, which ends with this one; returns its port."""
    listener = socket.create_server(("127.0.0.1", 0), backlog=4000)
    child = os.fork()
    if child == 0:
        serve(listener)
    cleanup(os.waitpid, child, 0)
    cleanup(os.kill, child, signal.SIGKILL)
    return listener.getsockname()[1]


def hold_all(listener):
    held = []
    while True:
        held.append(listener.accept())


def send_much(listener):
    block = bytes(1 << 20)
    while True:
        with listener.accept()[0] as taken:
            taken.recv(1)
            for _ in range(AMOUNT // len(block)):
                taken.sendall(block)


def open_tunnel(port, site):
    client = socket.create_connection(("127.0.0.1", port), 60)
    client.sendall(f"CONNECT localhost:{site} HTTP/1.1\r\nHost: localhost:{site}\r\n\r\n".encode())
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        part = client.recv(4096)
        assert part, head
        head += part
    assert head.split()[1] == b"200", head
    return client


def family(pid):
    """The process and what it has started."""
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return [pid] + [each for child in children for each in family(int(child))]


def memory(pid):
    """KiB."""
    return sum(int(line.split()[1]) for each in family(pid)
               for line in pathlib.Path(f"/proc/{each}/smaps_rollup").read_text().splitlines() if line.startswith("Pss:"))


def page_time(port, page):
    """Milliseconds."""
    times = []
    for _ in range(200):
        begin = time.monotonic()
        with closing(socket.create_connection(("127.0.0.1", port), 60)) as client:
            client.sendall(f"GET {page} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
            assert read_all(client).startswith(b"HTTP/1.1 200"), page
        times.append(time.monotonic() - begin)
    return statistics.median(times) * 1000


def rate(port, site):
    """MB a second through a tunnel."""
    buffer, count = bytearray(1 << 20), 0
    with closing(open_tunnel(port, site)) as client:
        client.sendall(b"x")
        begin = time.monotonic()
        while count < AMOUNT - AMOUNT % (1 << 20):
            got = client.recv_into(buffer)
            assert got, count
            count += got
    return count / 1e6 / (time.monotonic() - begin)


def main(count):
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]  # a proxy needs two for each tunnel
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    with ExitStack() as stack:
        holder, sender = (start_site(stack.callback, serve) for serve in (hold_all, send_much))
        origin = Nginx(stack.callback)
        origin.put("page.html", b"<html><body>" + b"plain words " * 84 + b"</body></html>")
        page = f"http://localhost:{origin.port}/page.html"
        quiet = {"log.debug_level": 1, "requests.connect_any_protocol": True}
        ways = {"netsiftd": (Filter(stack.callback, quiet), count),
                "netsiftd, max_tunnels 0": (Filter(stack.callback, quiet | {"listen.max_tunnels": 0}), KEPT),
                "squid": (Squid(stack.callback, descriptors=2 * count + 500), count)}
        print(f"{'':24} {'tunnels':>8} {'KiB each':>9} {'page ms':>8} {'with them':>10} {'MB/s':>7}")
        for name, (way, held) in ways.items():
            alone, speed = page_time(way.port, page), rate(way.port, sender)
            before = memory(way.process.pid)
            tunnels = [open_tunnel(way.port, holder) for _ in range(held)]
            time.sleep(2)
            each = (memory(way.process.pid) - before) / held
            beside = page_time(way.port, page)
            print(f"{name:24} {held:8} {each:9.2f} {alone:8.2f} {beside:10.2f} {speed:7.0f}", flush=True)
            for tunnel in tunnels:
                tunnel.close()


main(int(sys.argv[1]) if len(sys.argv) > 1 else 9000)
