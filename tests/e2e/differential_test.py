"""What curl gets through the filter, with every check off, is what it gets without it: a thousand made-up requests and
answers. NETSIFT_SEED=n makes up others."""
import hashlib
import os
import random
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

from exchanges import UPLOADS, Exchange, read_chunks
from harness import Case, scratch_folder

SEED = int(os.environ.get("NETSIFT_SEED", "20240611"))
COUNT, CURLS = 1000, 4
# What belongs to one hop, or says how a body is cut, differs on purpose.
HOP = {"connection", "proxy-connection", "keep-alive", "transfer-encoding", "trailer", "te", "upgrade", "via", "x-hop"}


def fields_of(head, without=()):
    """A head's fields in their order, names in lower case."""
    fields = [line.partition(":") for line in head.split("\r\n")[1:] if line]
    return [(name.lower(), value.strip()) for name, _, value in fields if name.lower() not in without]


def as_curl_config(exchange, file, origin, proxy):
    lines = [f'url = "http://localhost:{origin}{exchange.path}"', f'output = "{file}"', "include", "path-as-is",
             'noproxy = ""', 'write-out = "%{exitcode}\\n"', "max-time = 20"]
    lines += [f'proxy = "http://127.0.0.1:{proxy}"'] if proxy else []
    lines += ["head"] if exchange.method == "HEAD" else [f'request = "{exchange.method}"']
    lines += [f'data-binary = "@{file.parent}/{exchange.upload}.bin"'] if exchange.upload is not None else []
    lines += [f'header = "{line}"' for field in exchange.fields for line in field.replace('"', '\\"').split("\n")]
    return "\n".join(lines + (["http1.0"] if exchange.http10 else []))


def outcome(file, exit_code):
    head, _, body = file.read_bytes().partition(b"\r\n\r\n")
    while head[9:10] == b"1":
        head, _, body = body.partition(b"\r\n\r\n")
    head = head.decode("latin-1")
    status = head.partition("\r\n")[0][9:].strip()
    lengths = {value for name, value in fields_of(head) if name == "content-length" and status[:3] != "204"}
    return {"curl's exit": exit_code, "status": status, "fields": fields_of(head, HOP | {"content-length"}),
            "lengths": lengths, "body": body.removesuffix(b"X-Trailer: 1\r\n")}  # curl writes it there


class Differential(Case):
    settings = {"log.debug_level": 1} | dict.fromkeys((
        "requests.block_ports", "lists.use_whitelist", "lists.block_ads", "lists.check_blacklists", "ratings.check",
        "content.check_phrases", "content.report_urls", "scanning.scan", "cache.enabled", "popups.block"), False)

    def serve(self, connection):
        """The origin: says in each answer what it understood of the request."""
        reader = connection.makefile("rb")
        while head := b"\r\n".join(iter(lambda: reader.readline().strip(b"\r\n"), b"")).decode("latin-1"):
            fields = dict(fields_of(head))
            if "via" in fields and (HOP - {"via", "connection", "transfer-encoding"} & set(fields)
                                    or fields.get("accept-encoding", "gzip") not in ("gzip", "identity")):
                self.leaked.append(head)
            if "expect" in fields:
                connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
            is_chunked = "transfer-encoding" in fields
            body = read_chunks(reader) if is_chunked else reader.read(int(fields.get("content-length", 0)))
            method, target = head.split(" ")[:2]
            compared = sorted(fields_of(head, HOP | {"accept-encoding", "expect", "content-length"}))
            understood = f"{method} {target} {compared}".encode() + body
            exchange = self.exchanges[int(target[1:].partition("/")[0].partition("?")[0])]
            for piece in exchange.pieces(f"X-Understood: {hashlib.sha1(understood).hexdigest()}"):
                connection.sendall(piece)
                time.sleep(0.0005)
            if exchange.closes:
                return

    def run_curls(self, way, proxy):
        """Every transfer's outcome; each curl keeps its connections where it can."""
        def run(share):
            config = "\nnext\n".join(as_curl_config(self.exchanges[number], files[number], self.port, proxy)
                                     for number in range(share, COUNT, CURLS))
            done = subprocess.run(["curl", "-q", "-s", "-K", "-"], input=config, capture_output=True, text=True)
            return done.stdout.split()

        files = [self.folder / f"{way}{number}" for number in range(COUNT)]
        with ThreadPoolExecutor(CURLS) as pool:
            exits = list(pool.map(run, range(CURLS)))
        return [outcome(file, exits[number % CURLS][number // CURLS]) for number, file in enumerate(files)]

    def test_a_thousand_exchanges(self):
        noise, self.leaked, self.folder = random.Random(SEED), [], scratch_folder()
        self.exchanges = [Exchange(noise, number) for number in range(COUNT)]
        for exchange, follower in zip(self.exchanges, self.exchanges[CURLS:]):
            exchange.announces |= bool(follower.upload)  # what met a closed connection is repeated, a body is not
        for size in UPLOADS:
            (self.folder / f"{size}.bin").write_bytes(noise.randbytes(size))
        self.port = self.peer(self.serve).port
        direct, through = self.run_curls("direct", None), self.run_curls("through", self.filter().port)
        self.assertEqual(self.leaked, [])
        differing = [(number, part, str(a[part])[:500], "through the filter", str(b[part])[:500])
                     for number, (a, b) in enumerate(zip(direct, through)) for part in a if a[part] != b[part]]
        self.assertEqual(differing[:3], [], f"seed {SEED}: {len(differing)}")
