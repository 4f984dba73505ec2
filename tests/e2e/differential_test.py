"""What curl gets through the filter, with every check off, is what it gets without it: a thousand made-up requests and
answers. NETSIFT_SEED=n makes up others."""
import hashlib
import os
import random
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from exchanges import UPLOADS, Exchange
from harness import Case, scratch_folder

SEED = int(os.environ.get("NETSIFT_SEED", "20240611"))
COUNT, CURLS = 1000, 4
# What belongs to one hop, or says how a body is cut, differs on purpose.
HOP = {"connection", "proxy-connection", "keep-alive", "transfer-encoding", "trailer", "te", "upgrade", "via", "x-hop"}
NOT_COMPARED = {"request": HOP | {"accept-encoding", "expect"}, "answer": HOP | {"content-length"}}


def fields_of(head, without=()):
    """A head's fields in their order, names in lower case."""
    fields = [line.partition(":") for line in head.split("\r\n")[1:] if line]
    return [(name.lower(), value.strip()) for name, _, value in fields if name.lower() not in without]


def as_curl_config(exchange, files, origin, proxy):
    lines = [f'url = "http://localhost:{origin}{exchange.path}"', f'output = "{files}.body"', "path-as-is",
             f'dump-header = "{files}.head"', 'noproxy = ""', 'write-out = "%{exitcode}\\n"', "max-time = 20"]
    lines += [f'proxy = "http://127.0.0.1:{proxy}"'] if proxy else []
    lines += ["head"] if exchange.method == "HEAD" else [f'request = "{exchange.method}"']
    lines += [f'data-binary = "@{files.parent}/{exchange.upload}.bin"'] if exchange.upload is not None else []
    lines += [f'header = "{line}"' for field in exchange.fields for line in field.replace('"', '\\"').split("\n")]
    return "\n".join(lines + (["http1.0"] if exchange.http10 else []))


def outcome(files, exit_code, method):
    heads, body = Path(f"{files}.head").read_bytes().decode("latin-1").split("\r\n\r\n"), Path(f"{files}.body")
    head = next(head for head in reversed(heads) if head.startswith("HTTP/"))
    status = head.partition("\r\n")[0][9:].strip()
    lengths = {value for name, value in fields_of(head) if name == "content-length" and status[:3] != "204"}
    return {"curl's exit": exit_code, "status": status, "fields": fields_of(head, NOT_COMPARED["answer"]),
            "lengths": lengths,  # and curl writes a HEAD's head where others have their body
            "body": body.read_bytes() if body.exists() and method != "HEAD" else b""}


class Differential(Case):
    settings = {"log.debug_level": 1} | dict.fromkeys((
        "requests.block_ports", "lists.use_whitelist", "lists.block_ads", "lists.check_blacklists", "ratings.check",
        "content.check_phrases", "content.report_urls", "scanning.scan", "cache.enabled", "popups.block"), False)

    def serve(self, connection):
        """The origin: says in each answer what it understood of the request."""
        reader = connection.makefile("rb")
        while head := b"\r\n".join(iter(lambda: reader.readline().strip(b"\r\n"), b"")).decode("latin-1"):
            fields = dict(fields_of(head))
            if "via" in fields and (HOP - {"via", "connection"} & set(fields)
                                    or fields.get("accept-encoding", "identity") != "identity"):
                self.leaked.append(head)
            if "expect" in fields:
                connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
            body = reader.read(int(fields.get("content-length", 0)))
            method, target = head.split(" ")[:2]
            understood = f"{method} {target} {sorted(fields_of(head, NOT_COMPARED['request']))}".encode() + body
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
        return [outcome(files[number], exits[number % CURLS][number // CURLS], exchange.method)
                for number, exchange in enumerate(self.exchanges)]

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
        differing = [(number, part) for number in range(COUNT) for part in direct[number]
                     if direct[number][part] != through[number][part]]
        for number, part in differing[:5]:
            exchange = {name: str(value)[:300] for name, value in vars(self.exchanges[number]).items()}
            print(f"seed {SEED}, exchange {number}: {part} {direct[number][part]!s:.300}, through the filter "
                  f"{through[number][part]!s:.300}\n  {exchange}")
        self.assertEqual(len(differing), 0, f"seed {SEED}")
