"""The mixed load of soak.py: an origin, clients of every kind, and what each answer must be."""
import functools
import gzip
import hashlib
import os
import random
import re
import socket
import ssl
import struct
import threading
import time
import zlib
from collections import Counter, namedtuple
from contextlib import closing, suppress

from harness import TOP

PATIENCE = 30  # seconds for the next bytes
STAMP = rb"(#\d+ )?[\d:]{10} [\d:]{8} Netsift\[\d+\](: )?"  # of the debug log, which a block page shows
MARKED = (TOP / "share/site/marked.txt").read_bytes()
PLAIN = b"<p>plain words for everybody to read</p>\n"
WORDS = b"<p>snorgle dice, zibberdy wheel, flumblewick tournament</p>"

noise = functools.cache(lambda size: random.Random(size).randbytes(size))


def text(size, end=b""):
    return lambda serial: b"<html><body><p>" + serial + b"</p>" + PLAIN * (size // len(PLAIN)) + end + serial


def data(size, end=b""):
    return lambda serial: serial + noise(size) + end + serial


# What the origin serves at /NAME/SERIAL, and how.
Page = namedtuple("Page", "content type coding framing pause", defaults=("text/html", "", "length", 0))
# What is asked for, there or at an URL. `says`: in the filter's own page that comes for it; without, what the origin
# serves must arrive.
Ask = namedtuple("Ask", "weight page url method fields upload status says",
                 defaults=(None, "", "GET", "", None, 200, None))
LISTED = b"on the list of the category"
JUDGED = b"text fits the category"
BINARY = "application/octet-stream"
FORM = "Content-Type: multipart/form-data; boundary=cut\r\n"
FILE = b'--cut\r\nContent-Disposition: form-data; name="f"; filename="a.txt"\r\n\r\n%s\r\n--cut--\r\n'
TAKEN = Page(None, "text/plain")  # says what was understood of an upload
ASKS = {
    "small": Ask(8, Page(text(900))),
    "page": Ask(8, Page(text(30_000))),
    "long": Ask(3, Page(text(200_000))),
    "plain": Ask(3, Page(text(5000), "text/plain")),
    "gzip": Ask(5, Page(text(40_000), coding="gzip")),
    "deflate": Ask(2, Page(text(40_000), coding="deflate")),
    "chunked": Ask(5, Page(text(30_000), framing="chunked")),
    "chunkedgzip": Ask(3, Page(text(90_000), coding="gzip", framing="chunked")),
    "close": Ask(3, Page(text(30_000), framing="close")),
    "slow": Ask(2, Page(text(60_000), framing="chunked", pause=0.05)),
    "binary": Ask(5, Page(data(50_000), BINARY)),
    "download": Ask(1, Page(data(3_000_000), BINARY)),
    "image": Ask(5, Page(data(12_000), "image/png")),
    "head": Ask(4, Page(text(30_000)), method="HEAD"),
    "unchanged": Ask(4, Page(text(0)), fields='If-None-Match: "e"\r\n', status=304),
    "file": Ask(6, url="/page.html"),  # nginx's, with a date: the verdict is kept
    "fileunchanged": Ask(3, url="/page.html", fields="If-Modified-Since: {date}\r\n", status=304),
    "badfile": Ask(2, url="/words.html", status=403, says=b"Page blocked"),
    "missing": Ask(2, url="/none.html", status=404),
    "words": Ask(2, Page(text(3000, WORDS)), status=403, says=JUDGED),
    "wordsgzip": Ask(2, Page(text(3000, WORDS), coding="gzip", framing="chunked"), status=403, says=JUDGED),
    "type": Ask(2, Page(data(20_000), "application/x-forbidden"), status=403, says=b"Files of the type"),
    "virus": Ask(2, Page(data(60_000, MARKED), BINARY), status=403, says=b"A virus was found"),
    "listed": Ask(3, url="http://blocked.example/{serial}", status=403, says=LISTED),
    "toggled": Ask(2, Page(text(3000))),  # listed after every other loading
    "port": Ask(1, url="http://{host}:25/{serial}", status=403, says=b"Connections to port 25 are not allowed."),
    "ad": Ask(3, url="http://ads.example/{serial}", status=403, says=b""),
    "nowhere": Ask(1, url="http://{host}:1/{serial}", status=502, says=b"could not be loaded"),
    "post": Ask(3, TAKEN, method="POST", upload=lambda serial: b"a=1&b=" + serial),
    "put": Ask(1, TAKEN, method="PUT", upload=data(300_000)),
    "putchunked": Ask(1, TAKEN, method="PUT", fields="Transfer-Encoding: chunked\r\n", upload=data(40_000)),
    "allowed": Ask(2, TAKEN, method="POST", fields=FORM, upload=lambda serial: FILE % (noise(30_000) + serial)),
    "upload": Ask(2, TAKEN, method="POST", fields=FORM, upload=lambda serial: FILE % serial, status=403,
                  says=b"Files may not be sent"),
}
SETTINGS = {"content.blocked_types": ["x-forbidden"], "requests.block_uploads": True, "scanning.scan": True,
            "requests.upload_sites": ["/allowed/"], "scanning.skip_types": True}
FILES = {True: {"viruswhite.conf": "text/\nimage/\n"}, False: {"viruswhite.conf": "image/\n"}}  # by strict_http
# What pages say while strict_http is off. There what is coded is not judged, and squid answers for nowhere.
SAYS_OF_OLD = {JUDGED: b"Offensive content found on the site", b"Files of the type": b"access to content type",
               b"Files may not be sent": b"Attachments are not allowed", b"A virus was found": b"Content is infected",
               LISTED: b"Black Listed URL",
               b"Connections to port 25 are not allowed.": b"access to port:25 not allowed"}


def as_of_old(name, ask):
    if name in ("nowhere", "putchunked", "ad"):
        return None
    if name == "wordsgzip":
        return ask._replace(says=None, status=200)
    return ask._replace(says=SAYS_OF_OLD.get(ask.says, ask.says), status=200) if ask.says else ask


class Wrong(Exception):
    """The answer is not what it must be."""


def chunked(body):
    return b"".join(b"%x\r\n%s\r\n" % (len(body[at:at + 7000]), body[at:at + 7000])
                    for at in range(0, len(body), 7000)) + b"0\r\n\r\n"


def body_of(ask, serial):
    """What the origin serves for it, as it is coded."""
    if ask.upload:
        upload = ask.upload(serial)
        return b"%d %s\n" % (len(upload), hashlib.sha1(upload).hexdigest().encode())
    body = ask.page.content(serial)
    if ask.page.coding == "gzip":
        return gzip.compress(body, mtime=0)
    return zlib.compress(body) if ask.page.coding else body


def read_request(reader):
    """Its path's two parts and its body; None at the connection's end."""
    head = b"".join(iter(lambda: reader.readline().lstrip(b"\r\n"), b"")).decode("latin-1").lower()
    if not head:
        return None
    upload = reader.read(int((re.search("\ncontent-length: *([0-9]+)", head) or [0, 0])[1]))
    while "\ntransfer-encoding: chunked" in head:
        upload += reader.read(size := int(reader.readline() or b"0", 16))
        reader.readline()
        if size == 0:
            break
    return *head.split(" ")[1].split("/")[-2:], head, upload


def serve(connection):
    """The origin."""
    reader = connection.makefile("rb")
    while asked := read_request(reader):
        name, serial, head, upload = asked
        if name == "switch":
            return switch(connection, serial)
        ask, serial = ASKS[name], serial.encode()
        body = body_of(ask, serial)
        if ask.upload and upload != ask.upload(serial):
            body = b"not what was sent"
        page, framing = ask.page, "length" if ask.status == 304 else ask.page.framing
        answer = (f"HTTP/1.1 {304 if ask.status == 304 else 200} Made up\r\nX-Serial: {serial.decode()}\r\n"
                  f'ETag: "e"\r\nContent-Type: {page.type}\r\n')
        answer += f"Content-Encoding: {page.coding}\r\n" if page.coding else ""
        answer += {"length": f"Content-Length: {len(body)}\r\n", "chunked": "Transfer-Encoding: chunked\r\n",
                   "close": "Connection: close\r\n"}[framing] + "\r\n"
        wire = chunked(body) if framing == "chunked" else body
        wire = answer.encode() + (b"" if ask.method == "HEAD" or ask.status == 304 else wire)
        for at in range(0, len(wire), 20_000 if page.pause else len(wire)):
            connection.sendall(wire[at:at + 20_000] if page.pause else wire)
            time.sleep(page.pause)
        if framing == "close" or "\nconnection: close" in head:
            return None
    return None


def switch(connection, serial):
    connection.sendall(b"HTTP/1.1 101 Switching\r\nUpgrade: websocket\r\nConnection: upgrade\r\n\r\n" + serial.encode())
    echo(connection)


def echo(connection):
    """Says back what it hears, and at the end of it how much that was."""
    connection.settimeout(600)
    count = 0
    while heard := connection.recv(65536):
        count += len(heard)
        connection.sendall(heard)
    connection.sendall(b"<%d>" % count)


def hello():
    """What a client of TLS says first."""
    said = ssl.MemoryBIO()
    with suppress(ssl.SSLWantReadError):
        ssl.create_default_context().wrap_bio(ssl.MemoryBIO(), said, server_hostname="any.test").do_handshake()
    return said.read()


class Client:
    def __init__(self, port):
        self.filter = port
        self.open()

    def open(self):
        self.began, self.buffer = time.monotonic(), b""
        self.sock = socket.create_connection(("127.0.0.1", self.filter), PATIENCE)
        self.port = self.sock.getsockname()[1]

    def close(self):
        self.sock.close()

    def reset(self):
        self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.sock.close()

    def more(self):
        part = self.sock.recv(65536)
        if not part:
            raise Wrong(f"the connection ended after {self.buffer[-200:]}")
        self.buffer += part

    def take(self, count):
        parts, have = [self.buffer], len(self.buffer)
        while have < count:
            parts.append(self.sock.recv(65536))
            have += len(parts[-1])
            if not parts[-1]:
                raise Wrong(f"the connection ended {count - have} bytes too early")
        whole = b"".join(parts)
        self.buffer = whole[count:]
        return whole[:count]

    def until(self, mark):
        while mark not in self.buffer:
            self.more()
        return self.take(self.buffer.index(mark) + len(mark))

    def chunks(self):
        while size := int(self.until(b"\r\n").split(b";")[0], 16):
            yield self.take(size)
            self.until(b"\r\n")
        self.until(b"\r\n")

    def rest(self):
        self.buffer += b"".join(iter(lambda: self.sock.recv(65536), b""))
        return self.take(len(self.buffer))

    def answer(self, method):
        """Head and body, whatever frames it."""
        head = self.until(b"\r\n\r\n")
        status, fields = head[9:12], head.lower()
        if method == "HEAD" or status in (b"304", b"204"):
            return head, b""
        if b"\r\ntransfer-encoding: chunked" in fields:
            return head, b"".join(self.chunks())
        length = re.search(rb"\r\ncontent-length: *(\d+)", fields)
        return head, self.take(int(length[1])) if length else self.rest()


class Load:
    """What is asked of the filter at a port, and how it went. `killed` maps a client's port to when the process that
    served it was killed. `listed` is whether "toggled" is on a list now, None while that changes, and `changed` when it
    last did: a connection keeps the lists that it began with."""

    def __init__(self, filtering, nginx, peer):
        self.port, self.nginx, self.strict, self.host = filtering.port, nginx, filtering.strict, filtering.host
        self.origin, self.echo = peer(serve).port, peer(echo).port
        nginx.put("page.html", text(20_000)(b"-"))
        nginx.put("words.html", text(3000, WORDS)(b"-"))
        for name in ("page.html", "words.html"):
            os.utime(nginx.www / name, (1_700_000_000, 1_700_000_000))
        self.tls = ssl.create_default_context(cafile=str(nginx.folder / "cert.pem"))
        self.lock, self.references, self.collecting = threading.Lock(), {}, True
        self.killed, self.listed, self.changed, self.ended = {}, False, 0, threading.Event()
        self.serials = iter(range(1_000_000_000, 9_999_999_999))
        self.counts, self.times, self.unexpected, self.excused = Counter(), [], [], []
        asks = {name: ask if self.strict else as_of_old(name, ask) for name, ask in ASKS.items()}
        self.asks, self.says_listed = {name: ask for name, ask in asks.items() if ask}, asks["listed"].says
        with closing(Client(self.port)) as client:  # nginx's date for the requests that know it
            client.sock.sendall(self.request("file", b"0", False))
            self.date = re.search(rb"\r\nLast-Modified: (.*)\r\n", client.answer("GET")[0])[1].decode()

    def serial(self):
        with self.lock:
            return b"s%d" % next(self.serials)

    def request(self, name, serial, kept):
        ask, text_serial = self.asks[name], serial.decode()
        url = (ask.url.format(serial=text_serial, host=self.host) or
               f"http://{self.host}:{self.origin}/{name}/{text_serial}")
        if url[0] == "/":
            url = f"http://{self.host}:{self.nginx.port}{url}"
        fields = ask.fields.format(date=getattr(self, "date", "")) + ("" if kept else "Connection: close\r\n")
        upload = ask.upload(serial) if ask.upload else b""
        if "chunked" in fields:
            upload = chunked(upload)
        elif ask.upload:
            fields += f"Content-Length: {len(upload)}\r\n"
        return f"{ask.method} {url} HTTP/1.1\r\nHost: {url.split('/')[2]}\r\n{fields}\r\n".encode() + upload

    def check(self, client, name, serial, kept, head, body):
        ask, listed = self.asks[name], self.listed
        if self.changed > client.began:
            listed = None
        if name == "toggled" and (listed or (listed is None and self.says_listed in body)):
            if self.says_listed not in body:
                raise Wrong(f"{name}: {head + body[:300]}")
            return
        if head[9:12] != b"%d" % ask.status or (ask.says or b"") not in body:
            raise Wrong(f"{name}: {head + body[:300]}")
        delivered = ask.says is None and not ask.url
        if delivered and body != self.delivered(ask, serial):
            raise Wrong(f"{name}: another body of {len(body)} bytes: {head + body[:300]}")
        plain = re.sub(rb"(?i)\r\nDate: [^\r]*|(?<=\r\nContent-Length: )\d+", b"", head) + (b"" if delivered else body)
        plain = re.sub(STAMP, b"", plain.replace(serial, b"SERIAL"))
        known = self.references.setdefault((name, kept), set())
        if self.collecting:
            known.add(plain)
        elif plain not in known:
            raise Wrong(f"{name}: not as without load: {head + body[:300]}")

    @staticmethod
    def delivered(ask, serial):
        """What arrives of what the origin serves, as it is coded there."""
        return b"" if ask.method == "HEAD" or ask.status == 304 else body_of(ask, serial)

    def goes_on(self, head, body):
        """Whether the connection is kept; with strict_http off a block page is the end without a word of it."""
        return (head[:8] == b"HTTP/1.1" and b"\r\nconnection: close" not in head.lower() and
                (self.strict or b"<title>Page blocked" not in body))

    def one(self, client, name, kept):
        """An exchange; returns whether the connection is kept."""
        serial, begin = self.serial(), time.monotonic()
        client.sock.sendall(self.request(name, serial, kept))
        head, body = client.answer(self.asks[name].method)
        self.check(client, name, serial, kept, head, body)
        self.note(name, time.monotonic() - begin)
        return kept and self.goes_on(head, body)

    def note(self, name, seconds=None):
        with self.lock:
            self.counts[name] += 1
            if seconds is not None:
                self.times.append(seconds)

    def run(self, session, *arguments):
        """A session on a connection of its own. One that fails is excused if the process that served the connection
        was killed meanwhile."""
        client = None
        try:
            client = Client(self.port)
            session(client, *arguments)
        except (Wrong, OSError, ValueError) as error:
            killed = client and self.killed.get(client.port, 0) >= client.began
            what = f"{time.strftime('%X')} {session.__name__} {arguments}: {type(error).__name__} {error}"
            with self.lock:
                (self.excused if killed else self.unexpected).append(what)
        finally:
            if client:
                client.close()

    def collect(self, first):
        """Without load: what the answers look like, on connections that end with them and on kept ones."""
        for name in self.asks:
            for session in (self.new, self.kept) if first else (self.kept, self.new):
                for _ in range(3):
                    self.run(session, [name])

    # Sessions

    def new(self, client, names):
        self.one(client, names[0], False)

    def kept(self, client, names):
        going = True
        for number, name in enumerate(names):
            if not going:
                client.close()
                client.open()
            going = self.one(client, name, True)
            time.sleep(random.random() / 2 if number < len(names) - 1 and not self.collecting else 0)

    def pipelined(self, client, names):
        serials = [self.serial() for _ in names]
        client.sock.sendall(b"".join(self.request(*asked, True) for asked in zip(names, serials)))
        for name, serial in zip(names, serials):
            head, body = client.answer(self.asks[name].method)
            self.check(client, name, serial, True, head, body)
            self.note(name)
            if not self.goes_on(head, body):
                return

    def leave(self, client, names):
        """Goes in the middle of something."""
        asked, serial = random.choice(("download", "page", "put", "post")), self.serial()
        request = self.request(asked, serial, random.random() < 0.5)
        client.sock.sendall(request[:random.choice((0, 10, len(request) // 2, len(request), len(request)))])
        with suppress(socket.timeout):
            client.sock.settimeout(random.random() / 10)
            client.sock.recv(random.choice((1, 5000)))
        random.choice((client.close, client.reset))()
        self.note("left")

    def slow_reader(self, client, names):
        serial = self.serial()
        client.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8192)
        client.sock.sendall(self.request("download", serial, False))
        for _ in range(20):
            time.sleep(0.1)
            client.more()
        self.check(client, "download", serial, False, *client.answer("GET"))
        self.note("slowly read")

    def tunnel(self, client, port):
        client.sock.sendall(f"CONNECT {self.host}:{port} HTTP/1.1\r\nHost: {self.host}:{port}\r\n\r\n".encode())
        head = client.until(b"\r\n\r\n")
        if head[9:12] != b"200":
            raise Wrong(str(head))

    def https(self, client, names):
        self.tunnel(client, self.nginx.tls_port)
        with self.tls.wrap_socket(client.sock, server_hostname=self.host) as secured:
            secured.sendall(b"GET /page.html HTTP/1.0\r\n\r\n")
            answer = b"".join(iter(lambda: secured.recv(65536), b""))
        if not answer.endswith(b"\r\n\r\n" + text(20_000)(b"-")):
            raise Wrong(str(answer[:300]))
        self.note("https")

    def says_back(self, client, sent):
        heard = b""
        for at in range(0, len(sent), 10_000):  # less than all buffers between take
            client.sock.sendall(sent[at:at + 10_000])
            heard += client.take(len(sent[at:at + 10_000]))
        if heard != sent:
            raise Wrong(f"not what was said: {heard[:300]}")
        return len(sent)

    def name_listed(self, client, names):
        """A tunnel to a site with a server name that is on a list."""
        self.tunnel(client, self.nginx.tls_port)
        try:
            self.tls.wrap_socket(client.sock, server_hostname="blocked.example").close()
            raise Wrong("let through")
        except ssl.SSLError as error:
            if error.reason != "TLSV1_ALERT_ACCESS_DENIED":
                raise
        self.note("name listed")

    def switched(self, client, names):
        """A change of protocol."""
        serial = self.serial()
        place = f"{self.host}:{self.origin}"
        client.sock.sendall(f"GET http://{place}/switch/{serial.decode()} HTTP/1.1\r\nHost: {place}\r\n"
                            "Connection: Upgrade\r\nUpgrade: websocket\r\n\r\n".encode())
        head = client.until(b"\r\n\r\n")
        if head[9:12] != b"101" or client.take(len(serial)) != serial:
            raise Wrong(str(head))
        self.says_back(client, serial + noise(5000))
        self.note("switched")

    def hold(self, client):
        """A tunnel that stays and is used now and then."""
        self.tunnel(client, self.echo)
        count, until = self.says_back(client, hello()), time.monotonic() + random.uniform(2, 100)
        while not self.ended.wait(random.uniform(0.2, 4)) and time.monotonic() < until:
            count += self.says_back(client, self.serial() + noise(random.choice((10, 1000, 100_000))))
        if random.random() < 0.2:
            client.reset()
        elif self.strict and random.random() < 0.9:  # both ends are passed on
            client.sock.shutdown(socket.SHUT_WR)
            if (heard := client.rest()) != b"<%d>" % count:
                raise Wrong(f"{count} bytes said, at the end {heard}")
        self.note("tunnel")

    # The load

    SESSIONS = {"new": 50, "kept": 20, "pipelined": 4, "leave": 8, "slow_reader": 1, "https": 4, "name_listed": 2,
                "switched": 2}

    def keep_tunnels(self):
        while not self.ended.is_set():
            self.run(self.hold)

    def sessions(self):
        """For ever: one at random, what it asks for, and how many requests that is."""
        sessions = {name: weight for name, weight in self.SESSIONS.items()
                    if self.strict or name not in ("switched", "name_listed")}
        pipelined = [name for name, ask in self.asks.items() if ask.method == "GET" and name != "toggled"]
        while True:
            session = random.choices(list(sessions), list(sessions.values()))[0]
            count = {"kept": random.randrange(2, 9), "pipelined": 3}.get(session, 1)
            names = pipelined if session == "pipelined" else list(self.asks)
            yield getattr(self, session), random.choices(names, [self.asks[name].weight for name in names], k=count)
