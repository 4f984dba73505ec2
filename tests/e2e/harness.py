"""What the end-to-end tests share: the real netsiftd in a scratch root, real peers around it, a scripted one for what
they will not do. Every port is a free one, every process is ended by its id."""
import atexit
import contextlib
import json
import os
import random
import re
import shutil
import signal
import socket
import socketserver
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from collections import namedtuple
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent.parent
NETSIFTD = os.environ.get("NETSIFTD", str(TOP / "build/netsiftd"))
PATIENCE = 20  # seconds until something that should happen counts as not happening

ASK_PORT_25 = b"GET http://localhost:25/ HTTP/1.1\r\nHost: localhost:25\r\nConnection: close\r\n\r\n"

Answer = namedtuple("Answer", "code head body")


def accepts(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def ask(port, request=ASK_PORT_25):
    """All that comes back."""
    with socket.create_connection(("127.0.0.1", port), PATIENCE) as client:
        client.sendall(request)
        return read_all(client)


def free_port():
    """Below the range from which the kernel takes the ports of outgoing connections."""
    with socket.socket() as probe:
        try:
            probe.bind(("127.0.0.1", port := random.randrange(10000, 32000)))
        except OSError:
            return free_port()
    return port


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, f"waited {PATIENCE} s for {what}"
        time.sleep(0.02)


def stop(process):
    process.terminate()
    try:
        process.wait(PATIENCE)
    finally:
        process.kill()


def start(argv, log, ready, cleanup):
    with open(log, "ab") as output:
        process = subprocess.Popen([str(a) for a in argv], stdin=subprocess.DEVNULL, stdout=output, stderr=output)
    cleanup(stop, process)
    wait_until(lambda: ready() or process.poll() is not None, f"{argv[0]}, see {log}")
    assert process.poll() is None, f"{argv[0]} ended with {process.returncode}:\n{log.read_text(errors='replace')}"
    return process


def scratch_folder():
    folder = Path(tempfile.mkdtemp(prefix="ns-"))
    folder.chmod(0o755)  # squid reads its files as a user of its own
    atexit.register(shutil.rmtree, folder, ignore_errors=True)
    return folder


def make_certificate(folder):
    subprocess.run(["openssl", "req", "-x509", "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                    "-subj", "/CN=test", "-addext", "subjectAltName=DNS:localhost,DNS:origin.test",
                    "-keyout", folder / "key.pem", "-out", folder / "cert.pem"], check=True, capture_output=True)


def read_all(connection):
    return b"".join(iter(lambda: connection.recv(65536), b""))


def read_head(connection):
    head = b""
    while not head.endswith(b"\r\n\r\n") and (byte := connection.recv(1)):
        head += byte
    return head


def serve_nothing(connection):
    """A site whose answers have no body."""
    while connection.recv(65536):
        connection.sendall(b"HTTP/1.1 204 No Content\r\n\r\n")


class Filter:
    """A running netsiftd. `settings` maps "section.key" to a value that replaces the shipped one; `files` maps names in
    the configuration folder to their text. It is reached at the first place that it listens on."""

    def __init__(self, cleanup, settings=None, files=None, folder=None, listen=("127.0.0.1:0",)):
        self.root = folder or scratch_folder()
        self.etc, self.run = self.root / "opt/Velmora/etc/netsift", self.root / "opt/Velmora/var/run"
        self.logs, self.spool = self.root / "var/Velmora/var/log", self.root / "sp"
        subprocess.run([TOP / "scripts/layout.sh", self.root], check=True)
        config = (self.etc / "netsiftd.toml").read_text()
        changes = {"log.debug_level": 7, "upstream.timeout": 5, "scanning.spool_folder": f"{self.spool}/",
                   "requests.local_addresses": "pass", "requests.connect_ports": []}  # where the peers are
        if "NETSIFT_CONNECTIONS_PER_PROCESS" in os.environ:
            changes["listen.connections_per_process"] = int(os.environ["NETSIFT_CONNECTIONS_PER_PROCESS"])
        for name, value in (changes | (settings or {})).items():
            section, key = name.split(".")
            setting = rf"(\n\[{section}\]\n(?:(?!\[).*\n)*?{key} = ).*"
            config, count = re.subn(setting, lambda found: found[1] + json.dumps(value), config)
            assert count == 1, name
        (self.root / "test.toml").write_text(config)
        for name, text in (files or {}).items():
            (self.etc / name).write_text(text)
        self.output = self.root / "netsiftd.out"
        argv = [NETSIFTD, "--config", self.root / "test.toml", "--root", self.root, *(f"--listen={place}" for place in listen)]
        self.process = start(argv, self.output,
                             lambda: len(self.listening_ports()) == len(listen), cleanup)
        self.ports = self.listening_ports()
        self.port = self.ports[0]
        cleanup(self.check_end)

    def listening_ports(self):
        return [int(port) for port in re.findall(r"listening on \S+:(\d+)\n", self.output.read_text())]

    def await_said(self, *said):
        wait_until(lambda: all(part in self.output.read_text() for part in said), said)

    def reload(self, more="", said="configuration and lists loaded anew"):
        """With more behind the configuration."""
        with open(self.root / "test.toml", "a", encoding="ascii") as config:
            config.write(more)
        self.process.send_signal(signal.SIGHUP)
        self.await_said(said)

    def check_end(self):
        """Neither the daemon nor a child was stopped by a sanitizer or a signal."""
        stop(self.process)
        text = self.output.read_text(errors="replace")
        crashed = re.search("Sanitizer|runtime error|ended by signal (?!9$)", text, re.M)
        assert self.process.returncode == 0 and not crashed, f"netsiftd ended with {self.process.returncode}:\n{text}"

    def clamd(self, cleanup):
        """Starts the engine that this filter asks; it knows one made-up signature."""
        folder, listener = self.root / "clamd", self.run / "vlcavd.sock"
        (folder / "clamd.conf").write_text(f"DatabaseDirectory {folder}/db\nLocalSocket {listener}\n"
                                           f"TemporaryDirectory {folder}\nForeground yes\n")
        return start(["clamd", f"--config-file={folder}/clamd.conf"], folder / "log", listener.exists, cleanup)

    def written(self, file):
        """What a file holds when nobody is served any more: much is written after the answer."""
        wait_until(lambda: not self.waiting() and not self.connections(), "the connections' processes to end")
        return file.read_bytes().decode("latin-1") if file.exists() else ""

    def lines(self):
        """The debug log's messages, without their prefixes."""
        text = self.written(self.logs / "netsift-debug.log")
        return [message.rstrip("\n") for message in re.split(r"(?:#\d+ )?[\d:]{10} [\d:]{8} Netsift\[\d+\]: ", text)]

    def results(self):
        """The result lines, without the client that they begin with."""
        return [line[20:] for line in self.lines() if line.startswith("Client IP:127.0.0.1,") and "STATUS:" in line]

    def blocks(self):
        """The access log's records without their time and client: URL and the two texts."""
        return re.findall('" "127.0.0.1" "(.*)" "(.*)" "(.*)"\n', self.written(self.logs / "netsift-access.log"))

    def verdict(self, url):
        """What the verdict cache keeps for the URL."""
        found = re.search(rf"{re.escape(url)}\0\d+(\d)\0", self.written(self.root / "opt/Velmora/var/nscache.db"))
        return found and int(found[1])

    def fetch(self, url, *arguments):
        """curl's request."""
        head, body = self.root / "head", self.root / "body"
        body.write_bytes(b"")
        done = subprocess.run(
            ["curl", "-q", "-sS", "--max-time", "60", "--noproxy", "", "-x", f"http://127.0.0.1:{self.port}",
             "--suppress-connect-headers", "-H", "Expect:", "-D", head, "-o", body,
             "-w", "%{http_code}", *arguments, url], capture_output=True, text=True)
        assert done.returncode == 0, f"curl {url}: {done.stderr}"
        return Answer(int(done.stdout), head.read_bytes().decode("latin-1"), body.read_bytes())

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), PATIENCE)

    def tunnel(self, target):
        """The client's socket, and the head of the answer."""
        client = self.connect()
        client.sendall(f"CONNECT {target} HTTP/1.1\r\nHost: {target}\r\n\r\n".encode())
        return client, read_head(client).decode()

    def exchange(self, data):
        """Sends bytes and their end, and returns all that comes back until the filter closes."""
        with self.connect() as client:
            client.sendall(data)
            client.shutdown(socket.SHUT_WR)
            return read_all(client)

    def processes(self):
        """The workers: children of the servers that the daemon has started."""
        return [pid for pid in self.served_by() if self.is_worker(pid)]

    @staticmethod
    def name(pid):
        with contextlib.suppress(OSError):  # it has ended meanwhile
            return Path(f"/proc/{pid}/comm").read_text().rstrip("\n")
        return ""

    def is_worker(self, pid):
        return self.name(pid) == "netsiftd-worker"

    def served_by(self):
        """The workers and the processes that hold tunnels."""
        def children(pid):
            with contextlib.suppress(OSError):  # it has ended meanwhile
                return Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
            return []
        return [pid for server in children(self.process.pid) for pid in children(server)]

    def connections(self):
        """Those of them that serve a client now: who holds a socket that is neither a listener nor a local one nor one
        to a site. A client's cannot be told by its port: once the client has reset it, the kernel lists it no longer."""
        clients = {row[9] for row in self.client_rows() if row[3] != "0A"}
        listeners = {row[9] for row in self.tcp_rows()} - clients
        local = {row.split()[6] for row in Path("/proc/net/unix").read_text().splitlines()[1:]}
        own = {f"socket:[{inode}]" for inode in listeners | local}
        return [pid for pid in self.served_by() if self.sockets(pid) - own]

    @staticmethod
    def sockets(pid):
        found = set()
        with contextlib.suppress(OSError):  # process or descriptor is gone meanwhile
            for descriptor in Path(f"/proc/{pid}/fd").iterdir():
                with contextlib.suppress(OSError):
                    found.add(os.readlink(descriptor))
        return {name for name in found if name.startswith("socket:")}

    def waiting(self):
        """Whether a client's socket is open that no process holds: one that nobody has taken yet, or that is on its way
        to the process that holds tunnels."""
        return any(row[3] != "0A" and (row[9] != "0" or row[3] in ("01", "08")) for row in self.client_rows())

    def client_rows(self):
        """The kernel's lines about the listeners and their clients' sockets, in words: the 4th is the state, the 10th the
        inode. Established (01) or left by the client (08) without an inode are those that wait to be accepted."""
        ends = tuple(f":{port:04X}" for port in self.ports)
        return [row for row in self.tcp_rows() if row[1].endswith(ends)]

    @staticmethod
    def tcp_rows():
        tables = [table.read_text().splitlines()[1:] for table in Path("/proc/net").glob("tcp*")]
        return [line.split() for table in tables for line in table]


class Peer(socketserver.ThreadingTCPServer):
    """A scripted origin, upstream or, with a path, engine: runs handler(connection) for each, and closes it."""
    daemon_threads, request_queue_size = True, 100

    def __init__(self, cleanup, handler, path=None, place=("127.0.0.1", 0)):
        self.address_family = socket.AF_UNIX if path else socket.AF_INET6 if ":" in place[0] else socket.AF_INET
        super().__init__(str(path) if path else place, None)
        self.port, self.handler = self.server_address[1], handler
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()
        self.fault = None
        cleanup(self.tell_fault)
        cleanup(self.server_close)
        cleanup(self.shutdown)

    def handle_error(self, request, client_address):
        self.fault = sys.exc_info()[1]

    def tell_fault(self):
        """What the handler asserted, which nobody sees in its own thread."""
        if self.fault:
            raise self.fault

    def finish_request(self, request, client_address):
        request.settimeout(PATIENCE)
        with contextlib.suppress(OSError):  # the filter may go first
            self.handler(request)


class Nginx:
    """A real origin over files, plain and TLS. `more` is added to its configuration, <port> and <folder> filled in."""

    def __init__(self, cleanup, more=""):
        self.folder = scratch_folder()
        self.www = self.folder / "www"
        self.www.mkdir()
        self.port, self.tls_port = free_port(), free_port()
        make_certificate(self.folder)
        temporary = "".join(f"{k}_temp_path {self.folder}/{k}; " for k in ("proxy", "fastcgi", "uwsgi", "scgi"))
        (self.folder / "nginx.conf").write_text(f"""
            daemon off; master_process off; pid {self.folder}/nginx.pid; error_log stderr; events {{}}
            http {{
              {temporary} client_body_temp_path {self.folder}/bodies; client_max_body_size 20m; access_log off;
              types {{ text/html html; text/plain txt; application/x-forbidden forbidden; }}
              server {{
                listen 127.0.0.1:{self.port}; listen 127.0.0.1:{self.tls_port} ssl; root {self.www};
                ssl_certificate {self.folder}/cert.pem; ssl_certificate_key {self.folder}/key.pem;
                default_type application/octet-stream; location /taken {{ return 200 "taken\\n"; }}
                location /post {{ client_body_in_file_only on; proxy_pass_request_body off; proxy_method GET;
                  proxy_set_header Content-Length ""; proxy_pass http://127.0.0.1:{self.port}/taken; }}
                {more.replace("<port>", str(self.port)).replace("<folder>", str(self.folder))} }} }}""")
        start(["nginx", "-e", "stderr", "-p", self.folder, "-c", self.folder / "nginx.conf"],
              self.folder / "out", lambda: accepts(self.port) and accepts(self.tls_port), cleanup)

    def put(self, name, content):
        (self.www / name).write_bytes(content)
        return content

    def bodies(self):
        """Request bodies that arrived, in the order of their arrival."""
        return [file.read_bytes() for file in sorted((self.folder / "bodies").iterdir())]


class Squid:
    """A real upstream proxy; origin.test is this machine, port for port."""

    def __init__(self, cleanup, descriptors=1024):
        folder, self.port = scratch_folder(), free_port()
        (folder / "hosts").write_text("127.0.0.1 localhost origin.test\n")
        (folder / "squid.conf").write_text(
            f"http_port 127.0.0.1:{self.port}\nhttp_access allow all\ncache deny all\ncache_mem 8 MB\n"
            f"hosts_file {folder}/hosts\ndns_nameservers 127.0.0.1\nmax_filedescriptors {descriptors}\npinger_enable off\n"
            "netdb_filename none\npid_filename none\naccess_log none\ncache_store_log none\ncache_log /dev/null\n"
            f"coredump_dir {folder}\nshutdown_lifetime 0 seconds\n")
        self.process = start(["squid", "-N", "-f", folder / "squid.conf"], folder / "out", lambda: accepts(self.port), cleanup)


class Case(unittest.TestCase):
    maxDiff, settings = 2000, {}

    def filter(self, settings=None, files=None):
        return Filter(self.addCleanup, self.settings | (settings or {}), files)

    def peer(self, handler, path=None):
        return Peer(self.addCleanup, handler, path)

    def assert_page(self, answer, template, *parts):
        """The answer is that block or error page, filled with these texts."""
        body = (answer.body if isinstance(answer, Answer) else answer).decode()
        kinds = {"block": "This page is blocked", "error": "This page could not be loaded",
                 "messenger": "This message service is blocked"}
        for part in (kinds[template], *parts):
            self.assertIn(part, body)


class Road(Case):
    """Tests of a filter on its way to a real origin: direct, or `of_old`: through squid with StrictHttp = 0 and text
    shown as it came, which has code of its own. The class has one filter, a test may start others."""
    of_old, host = False, "localhost"

    @classmethod
    def setUpClass(cls):
        cls.origin = Nginx(cls.addClassCleanup)
        if cls.of_old:
            cls.host, squid = "origin.test", Squid(cls.addClassCleanup)
            cls.settings = cls.settings | {"http.strict_http": False, "http.escape_text": False,
                                           "upstream.proxy": f"127.0.0.1:{squid.port}"}
        cls.base = f"http://{cls.host}:{cls.origin.port}"
        cls.filtering = Filter(cls.addClassCleanup, cls.settings)

    def says(self, of_old, sentence):
        """The reason on a page, which is a sentence under StrictHttp."""
        return of_old if self.of_old else sentence

    def get(self, name, filtering=None):
        """All that comes back, also where curl would miss something."""
        request = f"GET {self.base}/{name} HTTP/1.1\r\nHost: {self.host}\r\n\r\n"
        return (filtering or self.filtering).exchange(request.encode())
