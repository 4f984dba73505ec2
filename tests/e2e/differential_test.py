"""What curl gets through the filter, with every check off, is what it gets without it: a thousand made-up requests and
answers. NETSIFT_SEED=n makes up others."""
import hashlib
import os
import random
import subprocess
import time

from exchanges import UPLOADS, Exchange
from harness import Case, scratch_folder

SEED = int(os.environ.get("NETSIFT_SEED", "20240611"))
COUNT, CURLS = 1000, 4
ALL_OFF = {"log.debug_level": 1} | {key: False for key in (
    "requests.block_ports", "lists.use_whitelist", "lists.block_ads", "lists.check_blacklists", "content.check_phrases",
    "content.report_urls", "ratings.check", "scanning.scan", "cache.enabled", "popups.block")}
# What belongs to one hop, or says how a body is cut, differs on purpose.
HOP = {"connection", "proxy-connection", "keep-alive", "transfer-encoding", "trailer", "te", "upgrade", "via", "x-hop"}
NOT_COMPARED = {"request": HOP | {"accept-encoding", "expect"}, "answer": HOP | {"content-length"}}


def fields_of(head, without=()):
    """A head's fields in their order, names in lower case."""
    fields = [line.partition(":") for line in head.split("\r\n")[1:] if line]
    return [(name.lower(), value.strip()) for name, _, value in fields if name.lower() not in without]


def as_curl_config(exchange, folder, origin, proxy):
    lines = [f'url = "http://localhost:{origin}{exchange.path}"', f'output = "{folder}/body"', "path-as-is",
             f'dump-header = "{folder}/head"', 'noproxy = ""', 'write-out = "%{exitcode}\\n"', "max-time = 20"]
    lines += [f'proxy = "http://127.0.0.1:{proxy}"'] if proxy else []
    lines += ["head"] if exchange.method == "HEAD" else [f'request = "{exchange.method}"']
    lines += [f'data-binary = "@{folder.parent}/{exchange.upload}.bin"'] if exchange.upload is not None else []
    lines += [f'header = "{line}"' for field in exchange.fields for line in field.replace('"', '\\"').split("\n")]
    return "\n".join(lines + (["http1.0"] if exchange.http10 else []))


def outcome(folder, exit_code, method):
    heads = (folder / "head").read_bytes().decode("latin-1").split("\r\n\r\n")
    head = next(head for head in reversed(heads) if head.startswith("HTTP/"))
    status, body = head.partition("\r\n")[0][9:].strip(), folder / "body"
    lengths = {value for name, value in fields_of(head) if name == "content-length" and status[:3] != "204"}
    has_body = body.exists() and method != "HEAD"  # curl writes a HEAD's head there
    return {"curl's exit": exit_code, "status": status, "fields": fields_of(head, NOT_COMPARED["answer"]),
            "lengths": lengths, "body": body.read_bytes() if has_body else b""}


class Differential(Case):
    def serve(self, connection):
        """The origin: says in each answer what it understood of the request."""
        reader = connection.makefile("rb")
        while line := reader.readline():
            lines = [line]
            while lines[-1] not in (b"\r\n", b""):
                lines.append(reader.readline())
            head = b"".join(lines).decode("latin-1")
            fields = dict(fields_of(head))
            if "via" in fields and HOP - {"via", "connection"} & set(fields):
                self.leaked.append(head)
            if "expect" in fields:
                connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
            body = reader.read(int(fields.get("content-length", 0)))
            method, target, _ = line.decode("latin-1").split(" ")
            understood = f"{method} {target} {sorted(fields_of(head, NOT_COMPARED['request']))}".encode() + body
            exchange = self.exchanges[int(target[1:].partition("/")[0].partition("?")[0])]
            for number, piece in enumerate(exchange.pieces(f"X-Understood: {hashlib.sha1(understood).hexdigest()}")):
                time.sleep(0.0005 if number else 0)
                connection.sendall(piece)
            if exchange.closes:
                return

    def run_curls(self, way, origin, proxy):
        """Every transfer's outcome; each curl keeps its connections where it can."""
        curls, exits = [], [None] * COUNT
        for share in range(CURLS):
            configs = []
            for number in range(share, COUNT, CURLS):
                folder = self.folder / f"{way}{number}"
                folder.mkdir()
                configs.append(as_curl_config(self.exchanges[number], folder, origin, proxy))
            config = self.folder / f"{way}{share}.curl"
            config.write_text("\nnext\n".join(configs))
            curls.append(subprocess.Popen(["curl", "-q", "-s", "-K", config], stdout=subprocess.PIPE, text=True))
        for share, curl in enumerate(curls):
            exits[share::CURLS] = curl.communicate()[0].split()
        return [outcome(self.folder / f"{way}{number}", exits[number], exchange.method)
                for number, exchange in enumerate(self.exchanges)]

    def test_a_thousand_exchanges(self):
        noise = random.Random(SEED)
        self.exchanges = [Exchange(noise, number) for number in range(COUNT)]
        for exchange, follower in zip(self.exchanges, self.exchanges[CURLS:]):
            exchange.announces |= bool(follower.upload)  # what met a closed connection is repeated, a body is not
        self.leaked, self.folder = [], scratch_folder()
        for size in UPLOADS:
            (self.folder / f"{size}.bin").write_bytes(noise.randbytes(size))
        origin, filtering = self.peer(self.serve), self.filter(ALL_OFF)
        times = [time.monotonic()]
        direct = self.run_curls("direct", origin.port, None)
        times.append(time.monotonic())
        through = self.run_curls("through", origin.port, filtering.port)
        print(f"seed {SEED}: {COUNT} direct in {times[1] - times[0]:.1f} s, through the filter in "
              f"{time.monotonic() - times[1]:.1f} s")
        self.assertEqual(self.leaked, [])
        differing = [(number, part) for number in range(COUNT) for part in direct[number]
                     if direct[number][part] != through[number][part]]
        for number, part in differing[:5]:
            exchange = {name: str(value)[:300] for name, value in vars(self.exchanges[number]).items()}
            print(f"seed {SEED}, exchange {number}: {part} {direct[number][part]!s:.300}, through the filter "
                  f"{through[number][part]!s:.300}\n  {exchange}")
        self.assertEqual(len(differing), 0, f"seed {SEED}")
