"""What the end-to-end tests share: the real netsiftd in a scratch root, real peers around it, a scripted one for what
they will not do. Nothing waits a fixed time, every port is a free one, every process is ended by its id."""
import atexit
import os
import pathlib
import random
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import tomllib
import unittest
from collections import namedtuple

HERE = pathlib.Path(__file__).resolve().parent
NETSIFTD = os.environ.get("NETSIFTD", str(HERE.parent.parent / "build/netsiftd"))
PATIENCE = 20  # seconds until something that should happen counts as not happening

Answer = namedtuple("Answer", "code head body transfers")  # transfers: code, size and new connections of each URL


def free_port():
    """Below the range from which the kernel takes the ports of outgoing connections."""
    while True:
        port = random.randrange(10000, 32000)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {PATIENCE} s for {what() if callable(what) else what}")
        time.sleep(0.02)
    return result


def accepts(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def stop(process):
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def start(argv, log, ready, cleanup):
    with open(log, "ab") as output:
        process = subprocess.Popen([str(a) for a in argv], stdin=subprocess.DEVNULL, stdout=output, stderr=output)
    cleanup(stop, process)

    def running():
        if process.poll() is not None:
            raise AssertionError(f"{argv[0]} ended with {process.returncode}:\n{log.read_text(errors='replace')}")
        return ready()

    wait_until(running, lambda: f"{argv[0]}:\n{log.read_text(errors='replace')}")
    return process


def scratch_folder():
    folder = pathlib.Path(tempfile.mkdtemp(prefix="ns-"))
    folder.chmod(0o755)  # squid reads its files as a user of its own
    atexit.register(shutil.rmtree, folder, ignore_errors=True)
    return folder


def as_toml(table, prefix=""):
    """The subset of TOML that the configuration uses."""
    def value(v):
        if isinstance(v, list):
            return "[" + ", ".join(map(value, v)) + "]"
        if isinstance(v, str):
            return '"' + v.replace("\\", "\\\\").replace('"', '\\"') + '"'
        return str(v).lower() if isinstance(v, bool) else str(v)

    plain, nested = [], []
    for key, v in table.items():
        if isinstance(v, dict):
            nested.append(f"[{prefix}{key}]\n" + as_toml(v, f"{prefix}{key}."))
        elif isinstance(v, list) and v and isinstance(v[0], dict):
            nested += [f"[[{prefix}{key}]]\n" + as_toml(entry) for entry in v]
        else:
            plain.append(f"{key} = {value(v)}\n")
    return "".join(plain + nested)


class Filter:
    """A running netsiftd. `settings` maps "section.key" to a value that replaces the shipped one; `files` maps names in
    the configuration folder to their text."""

    def __init__(self, cleanup, settings=None, files=None, folder=None):
        self.root = folder or scratch_folder()
        self.etc = self.root / "opt/Velmora/etc/netsift"
        self.spool = self.root / "sp"
        self.logs = self.root / "var/Velmora/var/log"
        self.cache = self.root / "opt/Velmora/var/nscache.db"
        subprocess.run([HERE.parent.parent / "scripts/layout.sh", self.root], check=True)
        config = tomllib.loads((self.etc / "netsiftd.toml").read_text())
        changes = {"log.debug_level": 7, "upstream.timeout": 5, "scanning.spool_folder": f"{self.spool}/"}
        for name, value in (changes | (settings or {})).items():
            section, _, key = name.rpartition(".")
            config.setdefault(section, {})[key] = value
        (self.root / "test.toml").write_text(as_toml(config))
        for name, text in (files or {}).items():
            (self.etc / name).write_text(text)
        self.output = self.root / "netsiftd.out"
        self.process = start([NETSIFTD, "--config", self.root / "test.toml", "--root", self.root,
                              "--listen", "127.0.0.1:0"], self.output, self.listening_port, cleanup)
        self.port = self.listening_port()
        cleanup(self.check_end)

    def listening_port(self):
        found = re.search(r"listening on 127\.0\.0\.1:(\d+)", self.output.read_text())
        return found and int(found.group(1))

    def check_end(self):
        """Neither the daemon nor a child was stopped by a sanitizer or a signal."""
        stop(self.process)
        text = self.output.read_text(errors="replace")
        if re.search("Sanitizer|runtime error|ended by signal", text) or self.process.returncode != 0:
            raise AssertionError(f"netsiftd ended with {self.process.returncode}:\n{text}")

    def lines(self):
        """The debug log's messages, without their prefixes."""
        text = (self.logs / "netsift-debug.log").read_text(errors="replace")
        return [message.rstrip("\n") for message in re.split(r"[\d:]{10} [\d:]{8} Netsift\[\d+\]: ", text)]

    def wait_for_line(self, part):
        return wait_until(lambda: next((line for line in self.lines() if part in line), None), f"log line {part!r}")

    def results(self):
        return [line for line in self.lines() if line.startswith("Client IP:") and "STATUS:" in line]

    def blocks(self):
        """The access log's records without their time: client, URL and the two texts."""
        log = self.logs / "netsift-access.log"
        return [line.strip('"').split('" "')[1:] for line in log.read_text().splitlines()] if log.exists() else []

    def fetch(self, url, *arguments):
        """curl's request, or requests where the URL holds a range. Head and body are the last one's."""
        with tempfile.TemporaryDirectory(dir=self.root) as folder:
            head, body = pathlib.Path(folder, "head"), pathlib.Path(folder, "body")
            done = subprocess.run(
                ["curl", "-q", "-sS", "--max-time", "60", "--noproxy", "", "-x", f"http://127.0.0.1:{self.port}",
                 "--suppress-connect-headers", "-H", "Expect:", "-D", head, "-o", body,
                 "-w", "%{http_code} %{size_download} %{num_connects}\n", *arguments, url],
                capture_output=True, text=True)
            if done.returncode != 0:
                raise AssertionError(f"curl {url}: {done.stderr}")
            transfers = [tuple(map(int, line.split())) for line in done.stdout.splitlines()]
            page = body.read_bytes() if body.exists() else b""
            return Answer(transfers[-1][0], head.read_bytes().decode("latin-1"), page, transfers)

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), PATIENCE)

    def exchange(self, data, end=False):
        """Sends bytes, with `end` also their end, and returns all that comes back until the filter closes."""
        with self.connect() as client:
            client.sendall(data)
            if end:
                client.shutdown(socket.SHUT_WR)
            return read_all(client)

    def connections(self):
        """The processes that serve connections: children of the server that the daemon has started."""
        def children(pid):
            return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
        return [pid for server in children(self.process.pid) for pid in children(server)]


def read_all(connection):
    parts = []
    while data := connection.recv(65536):
        parts.append(data)
    return b"".join(parts)


def read_head(connection):
    head = b""
    while not head.endswith(b"\r\n\r\n") and (byte := connection.recv(1)):
        head += byte
    return head


class Peer:
    """A scripted origin, upstream or, with a path, engine: runs handler(connection) for each, and closes it."""

    def __init__(self, cleanup, handler, path=None):
        if path:
            self.listener = socket.socket(socket.AF_UNIX)
            self.listener.bind(path)
            self.listener.listen()
        else:
            self.listener = socket.create_server(("127.0.0.1", 0))
            self.port = self.listener.getsockname()[1]
        self.handler = handler
        cleanup(self.listener.close)
        cleanup(self.listener.shutdown, socket.SHUT_RDWR)
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.run, args=(connection,), daemon=True).start()

    def run(self, connection):
        with connection:
            connection.settimeout(PATIENCE)
            try:
                self.handler(connection)
            except OSError:
                pass  # the filter may go first


class Nginx:
    """A real origin over files, plain and TLS."""

    def __init__(self, cleanup):
        self.folder = scratch_folder()
        self.port, self.tls_port = free_port(), free_port()
        self.www = self.folder / "www"
        self.www.mkdir()
        (self.folder / "bodies").mkdir()
        subprocess.run(["openssl", "req", "-x509", "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                        "-days", "2", "-subj", "/CN=test", "-addext", "subjectAltName=DNS:localhost,DNS:origin.test",
                        "-keyout", self.folder / "key.pem", "-out", self.folder / "cert.pem"],
                       check=True, capture_output=True)
        self.certificate = str(self.folder / "cert.pem")
        temporary = "".join(f"{k}_temp_path {self.folder}/{k}; " for k in ("proxy", "fastcgi", "uwsgi", "scgi"))
        (self.folder / "nginx.conf").write_text(f"""
            daemon off; master_process off; pid {self.folder}/nginx.pid; error_log stderr;
            events {{ worker_connections 128; }}
            http {{
              {temporary} client_body_temp_path {self.folder}/bodies;
              client_max_body_size 20m; keepalive_timeout 30; server_tokens off;
              types {{ text/html html; text/plain txt; text/css css; application/x-forbidden forbidden; }}
              default_type application/octet-stream;
              log_format seen '$request|$http_host|$http_proxy_connection|$http_accept_encoding|$http_via';
              access_log {self.folder}/seen.log seen;
              server {{
                listen 127.0.0.1:{self.port};
                listen 127.0.0.1:{self.tls_port} ssl;
                ssl_certificate {self.folder}/cert.pem; ssl_certificate_key {self.folder}/key.pem;
                root {self.www};
                location /post {{
                  client_body_in_file_only on;
                  proxy_pass_request_body off; proxy_set_header Content-Length ""; proxy_method GET;
                  proxy_pass http://127.0.0.1:{self.port}/taken;
                }}
                location /taken {{ default_type text/plain; return 200 "taken\\n"; }}
              }}
            }}""")
        self.process = start(["nginx", "-e", "stderr", "-p", self.folder, "-c", self.folder / "nginx.conf"],
                             self.folder / "out", lambda: accepts(self.port) and accepts(self.tls_port), cleanup)

    def put(self, name, content):
        (self.www / name).write_bytes(content)
        return content

    def seen(self, part):
        """The first request that reached the origin and whose record contains `part`."""
        log = self.folder / "seen.log"
        return wait_until(lambda: next((line for line in log.read_text().splitlines() if part in line), None), part)

    def bodies(self):
        """Request bodies that arrived, in the order of their arrival."""
        return [file.read_bytes() for file in sorted((self.folder / "bodies").iterdir()) if file.is_file()]


class Squid:
    """A real upstream proxy; origin.test is this machine, port for port."""

    def __init__(self, cleanup):
        folder = scratch_folder()
        self.port = free_port()
        (folder / "hosts").write_text("127.0.0.1 localhost origin.test white.test\n")
        (folder / "squid.conf").write_text(f"""
http_port 127.0.0.1:{self.port}
http_access allow all
cache deny all
cache_mem 8 MB
hosts_file {folder}/hosts
dns_nameservers 127.0.0.1
max_filedescriptors 1024
pinger_enable off
netdb_filename none
pid_filename none
access_log none
cache_store_log none
cache_log /dev/null
coredump_dir {folder}
shutdown_lifetime 0 seconds
""")
        self.process = start(["squid", "-N", "-f", folder / "squid.conf"], folder / "out",
                             lambda: accepts(self.port), cleanup)


class Case(unittest.TestCase):
    """A test whose filter is started with `filter`; what a whole class shares is made in setUpClass."""
    maxDiff = 2000

    def filter(self, settings=None, **more):
        return Filter(self.addCleanup, settings, **more)

    def peer(self, handler):
        return Peer(self.addCleanup, handler)

    def assert_page(self, answer, template, *parts):
        """The answer is that block or error page, filled with these texts."""
        body = (answer.body if isinstance(answer, Answer) else answer).decode()
        self.assertIn({"block": "This page is blocked", "error": "This page could not be loaded",
                       "messenger": "This message service is blocked"}[template], body)
        for part in parts:
            self.assertIn(part, body)
