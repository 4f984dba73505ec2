#!/usr/bin/env python3
"""What the filter costs a download of 100 MB, beside other proxies, and what a connection's process holds in memory.

    NETSIFTD=build/netsiftd bench/download.py [ROUNDS]

Real netsiftd, nginx and clamd on loopback, and squid, tinyproxy and privoxy without cache and logs; each round does
every way once, the table has the medians and their ratio to curl without a proxy. Memory is what a process has for
itself (Private_Dirty of smaps_rollup), the largest that was seen. Needs the packages of the sections run, upstream,
scan, test and bench; a Release build without sanitizers."""
import pathlib
import random
import socket
import statistics
import subprocess
import sys
import threading
import time
from contextlib import ExitStack

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/e2e"))
from harness import Filter, Nginx, Squid, accepts, free_port, read_all, scratch_folder, start, wait_until  # noqa: E402

SIZE = 100_000_000


def download(url, proxy):
    """Seconds."""
    argv = ["curl", "-q", "-sS", "--noproxy", "" if proxy else "*", "-o", "/dev/null",
            "-w", "%{http_code} %{size_download} %{time_total}"] + (["-x", proxy] if proxy else [])
    code, size, seconds = subprocess.run([*argv, url], check=True, capture_output=True, text=True).stdout.split()
    assert (code, int(size)) == ("200", SIZE), (code, size)
    return float(seconds)


def start_other(cleanup, config, *argv):
    """Returns the port of a proxy that is started with this configuration."""
    folder, port = scratch_folder(), free_port()
    (folder / "conf").write_text(config.format(port=port, folder=folder))
    start([*argv, folder / "conf"], folder / "out", lambda: accepts(port), cleanup)
    return port


def others(cleanup):
    """The ports of the proxies that netsiftd is compared with."""
    tiny = "Port {port}\nListen 127.0.0.1\nAllow 127.0.0.1\nLogLevel Critical\nLogFile \"{folder}/log\"\n"
    privoxy = ("confdir /etc/privoxy\nlogdir {folder}\nlisten-address 127.0.0.1:{port}\n"
               "actionsfile match-all.action\nactionsfile default.action\nfilterfile default.filter\n")
    return {"squid": Squid(cleanup).port, "tinyproxy": start_other(cleanup, tiny, "tinyproxy", "-d", "-c"),
            "privoxy": start_other(cleanup, privoxy, "privoxy", "--no-daemon")}


def scan(path, engine):
    """Seconds that the engine takes for the file by itself."""
    with socket.socket(socket.AF_UNIX) as asked:
        begin = time.monotonic()
        asked.connect(str(engine))
        asked.sendall(f"SCAN {path}\n".encode())
        reply = read_all(asked)
        assert reply.endswith(b": OK\n"), reply
        return time.monotonic() - begin


def private_dirty(filtering):
    """KiB of the connection's process, 0 when there is none."""
    largest = 0
    for pid in filtering.connections():
        try:
            lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
        except OSError:
            continue  # it has ended meanwhile
        largest = max([largest] + [int(line.split()[1]) for line in lines if line.startswith("Private_Dirty:")])
    return largest


def largest_during(filtering, job):
    seen, ended = [0], threading.Event()

    def watch():
        while not ended.wait(0.01):
            seen.append(private_dirty(filtering))

    watcher = threading.Thread(target=watch)
    watcher.start()
    try:
        job()
    finally:
        ended.set()
        watcher.join()
    return max(seen)


def idle_memory(filtering, page):
    """Before the first request of a connection, and between two."""
    with filtering.connect() as client:
        wait_until(lambda: private_dirty(filtering), "the connection's process")
        time.sleep(0.3)  # until it waits for the request
        before = private_dirty(filtering)
        client.sendall(f"GET {page} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
        wait_until(lambda: client.recv(65536), "an answer")
        after = private_dirty(filtering)
    wait_until(lambda: not filtering.connections(), "the connection's end")
    return before, after


def main(rounds):
    with ExitStack() as stack:
        origin = Nginx(stack.callback)
        origin.put("clean.bin", random.Random(5).randbytes(SIZE))
        origin.put("page.html", b"<html><body>" + b"plain words " * 84 + b"</body></html>")
        base = f"http://localhost:{origin.port}"
        quiet = {"log.debug_level": 1, "cache.enabled": False}
        off = Filter(stack.callback, quiet)
        on = Filter(stack.callback, quiet | {"scanning.scan": True})
        on.clamd(stack.callback)
        ways = {"without a proxy": None, "through netsiftd, scanning off": off.port,
                "through netsiftd and clamd": on.port,
                **{f"through {name}": port for name, port in others(stack.callback).items()}}
        alone = "clamd by itself, once"
        times = {name: [] for name in [*ways, alone]}
        for _ in range(rounds):
            times[alone].append(scan(origin.www / "clean.bin", on.run / "vlcavd.sock"))
            for name, way in ways.items():
                times[name].append(download(f"{base}/clean.bin", way and f"http://127.0.0.1:{way}"))
        fastest = statistics.median(times["without a proxy"])
        print(f"{SIZE // 1_000_000} MB, {rounds} rounds" + " " * 15 + "median s    ratio     MB/s")
        for name, seconds in times.items():
            median = statistics.median(seconds)
            print(f"{name:32} {median:8.3f} {median / fastest:8.2f} {SIZE / 1e6 / median:8.0f}")

        before, after = idle_memory(on, f"{base}/page.html")
        print("\nprivate dirty of a connection's process      KiB")
        rows = {"idle, before its first request": before, "idle, after a page": after}
        for name, way in (("during 100 MB, scanning off", off), ("during 100 MB through clamd", on)):
            proxy = f"http://127.0.0.1:{way.port}"
            rows[name] = largest_during(way, lambda proxy=proxy: download(f"{base}/clean.bin", proxy))
        for name, kib in rows.items():
            print(f"{name:40} {kib:8}")


main(int(sys.argv[1]) if len(sys.argv) > 1 else 3)
