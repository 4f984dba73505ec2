"""CONNECT: where it may lead, what may go through its tunnel, and the name that is asked for in there."""
import contextlib
import socket
import ssl

from harness import PATIENCE, Case, Nginx, Squid, read_all, read_head, wait_until


def tls_context():
    context = ssl.create_default_context()
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    return context


def hello(name):
    """The real one of a TLS library."""
    sent = ssl.MemoryBIO()
    with contextlib.suppress(ssl.SSLWantReadError):
        tls_context().wrap_bio(ssl.MemoryBIO(), sent, server_hostname=name).do_handshake()
    return sent.read()


def handshake(site, path):
    """What a browser begins a WebSocket with."""
    return (f"GET {path} HTTP/1.1\r\nHost: {site}\r\nConnection: keep-alive, Upgrade\r\nUpgrade: websocket\r\n"
            "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n").encode()


class Connect(Case):
    def test_other_ports_are_refused_and_a_refusal_is_never_a_200(self):
        origin = Nginx(self.addCleanup)
        origin.put("page", b"<p>page\n")
        for settings in ({}, {"http.block_status": 200}):
            filtering = self.filter(settings | {"requests.connect_ports": [443, origin.tls_port]})
            client, head = filtering.tunnel(f"localhost:{origin.port}")
            with client:
                self.assertIn("HTTP/1.1 403 Forbidden\r\n", head)
                self.assertIn(f"Encrypted connections to port {origin.port} are", read_all(client).decode())
            self.assertEqual(filtering.fetch(f"http://localhost:{origin.port}/page").body, b"<p>page\n")
            self.assertEqual(filtering.fetch(f"https://localhost:{origin.tls_port}/page", "-k").body, b"<p>page\n")
            self.assertIn(f"URL:localhost,STATUS:BLOCKED,Port Blocked:{origin.port}", filtering.results())
            self.assertEqual(filtering.blocks(), [("localhost", "Port Blocked", str(origin.port))])

    def test_what_does_not_begin_as_tls_ends_before_the_site_has_a_byte_of_it(self):
        heard = []
        def listen(asked):
            pieces = []
            with contextlib.suppress(ConnectionResetError):  # by a filter that leaves the greeting unread
                pieces.extend(iter(lambda: asked.recv(65536), b""))
            heard.append(b"".join(pieces))
        def greet(asked):
            asked.sendall(b"220 ready\r\n")
            listen(asked)
        filtering = self.filter({"requests.client_hello_seconds": 1})
        for site, sent, why in (
                (listen, b"GET / HTTP/1.1\r\n\r\n", "not TLS"), (listen, handshake("localhost:1", "/"), "not TLS"),
                (listen, handshake("other:PORT", "/"), "not TLS"),
                (listen, b"GET http://SITE/ HTTP/1.1\r\nHost: SITE\r\n\r\n", "not TLS"),
                (greet, b"", "the server speaks first"),
                (listen, b"", "no ClientHello in time"), (listen, hello("a.example")[:60], "no ClientHello in time"),
                (listen, hello("a.example").replace(b"a.example", b"a example"), "malformed server name")):
            with self.subTest(why):
                target = f"localhost:{self.peer(site).port}"
                with filtering.tunnel(target)[0] as client:
                    client.sendall(sent.replace(b"SITE", target.encode()).replace(b"PORT", target[10:].encode()))
                    self.assertNotIn(b"220", read_all(client))
                self.assertIn(f"URL:localhost,STATUS:BLOCKED,Tunnel Blocked:{why}", filtering.results()[-1:])
                self.assertEqual(("localhost", "Tunnel Blocked", why), filtering.blocks()[-1])
        wait_until(lambda: len(heard) == 8, "the sites' connections to end")
        self.assertEqual(heard, [b""] * 8)

    def test_a_websocket_without_tls_begins_with_a_request_that_is_judged(self):
        def serve(asked):
            heads.append(head := read_head(asked))
            if b"/echo " not in head:
                page = b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 13\r\n\r\n<p>some zonk."
                return asked.sendall(page)
            asked.sendall(b"HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n\r\nready")
            asked.sendall(asked.recv(100).upper())
        target = f"localhost:{self.peer(serve).port}"
        for proxy in ("", f"127.0.0.1:{Squid(self.addCleanup).port}"):
            heads = []
            filtering = self.filter({"upstream.proxy": proxy}, {"sample.url.orig": "localhost/listed\n",
                                                                "sample.phrase": "<zonk>100\n<~>0\n"})
            for path, code, said in (("/listed", b"403", b"is on the list"), ("/page", b"403", b"Sample category"),
                                     ("/echo", b"101", b"\r\n\r\nreadySHOUT")):
                with filtering.tunnel(target)[0] as client:
                    client.sendall(handshake(target, path) + b"shout")
                    answer = read_all(client)
                self.assertEqual((answer.split()[1], said in answer), (code, True), answer)
            self.assertEqual([head.split(b"\r\n")[0] for head in heads if head],
                             [b"GET /page HTTP/1.1", b"GET /echo HTTP/1.1"])

    def test_a_hello_in_single_bytes_goes_on_and_so_does_what_follows(self):
        origin = Nginx(self.addCleanup)
        filtering = self.filter()
        client, _ = filtering.tunnel(f"localhost:{origin.tls_port}")
        with client:
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for byte in (sent := hello("localhost")):
                client.sendall(bytes([byte]))
            self.assertEqual(client.recv(3)[:2], b"\x16\x03")
        self.assertRegex("\n".join(filtering.lines()), f"TUNNEL CLOSED,UP:{len(sent)},DOWN:")

    def test_a_silent_tunnel_ends_after_its_time(self):
        filtering = self.filter({"requests.tunnel_idle_seconds": 1, "requests.connect_any_protocol": True})
        peer = self.peer(lambda asked: read_all(asked))
        with filtering.tunnel(f"localhost:{peer.port}")[0] as client:
            client.settimeout(PATIENCE)
            self.assertEqual(client.recv(1), b"")

    def test_the_filters_own_machine_is_no_site(self):
        origin = Nginx(self.addCleanup)
        origin.put("page", b"secret")
        squid = Squid(self.addCleanup)
        for proxy in ("", f"127.0.0.1:{squid.port}"):
            filtering = self.filter({"requests.local_addresses": "refuse", "upstream.proxy": proxy})
            v6 = ("[::1]", "[::ffff:127.0.0.1]") if proxy else ()
            for host in ("localhost", "127.0.0.1", "0.0.0.0", "0x7f.1", *v6):
                for port in (origin.port, filtering.port):
                    plain = filtering.exchange(f"GET http://{host}:{port}/page HTTP/1.1\r\nHost: x\r\n\r\n".encode())
                    self.assertIn(b" 403 ", plain, host)
                    client, head = filtering.tunnel(f"{host}:{port}")
                    with client:
                        self.assertIn(" 403 ", head, host)
            self.assertIn("URL:0.0.0.0,STATUS:BLOCKED,Local Address:0.0.0.0", filtering.results())
            self.assertIn(("127.0.0.1/page", "Local Address", "127.0.0.1"), filtering.blocks())


class Names(Case):
    """The lists' names resolve nowhere: all sites are this machine's."""
    lists = {"sample.dom": "bad.example\nboth.example\n", "adserver.dom": "ads.example\n",
             "whitelist.dom": "both.example\n"}

    def ask(self, filtering, port, host, name):
        """The page that a site gives under a name, or how the client's TLS ended."""
        client, head = filtering.tunnel(f"{host}:{port}")
        self.assertIn(" 200 ", head)
        try:
            with tls_context().wrap_socket(client, server_hostname=name) as tls:
                tls.sendall(b"GET /page HTTP/1.0\r\n\r\n")
                return read_all(tls).decode().rpartition("\n")[2]
        except ssl.SSLError as error:
            return error.reason

    def run_cases(self, filtering, cases):
        origin = Nginx(self.addCleanup)
        origin.put("page", b"page")
        for host, name, line in cases:
            passes = "BLOCKED" not in line
            with self.subTest(host=host, name=name):
                answer = self.ask(filtering, origin.tls_port, host, name)
                self.assertEqual(answer, "page" if passes else "TLSV1_ALERT_ACCESS_DENIED")
                self.assertIn(f"Client IP:127.0.0.1,URL:{line}", filtering.lines())
                self.assertEqual(f"URL:{host},STATUS:TUNNELED,HTTPS REQUEST" in filtering.results()[-1:], passes)

    def test_a_name_is_held_against_the_lists_with_the_host(self):
        squid = Squid(self.addCleanup)
        for proxy in ("", f"127.0.0.1:{squid.port}"):
            filtering = self.filter({"upstream.proxy": proxy}, self.lists)
            self.run_cases(filtering, (
                ("localhost", "localhost", "localhost,STATUS:TUNNELED,HTTPS REQUEST"),
                ("localhost", None, "localhost,STATUS:TUNNELED,HTTPS REQUEST"),
                ("localhost", "other.example", "localhost,SERVER NAME:other.example"),
                ("localhost", "A.BAD.example", "a.bad.example,STATUS:BLOCKED,BlackListed:Sample category"),
                ("localhost", "ads.example", "ads.example,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER"),
                ("localhost", "both.example", "both.example,STATUS:BLOCKED,BlackListed:Sample category"),
                ("127.0.0.1", "both.example", "127.0.0.1,SERVER NAME:both.example"),
                ("127.0.0.1", "bad.example", "bad.example,STATUS:BLOCKED,BlackListed:Sample category")))
            self.assertIn(("bad.example", "Sample category", "BlackListed"), filtering.blocks())
            heard = []
            site = self.peer(lambda asked, heard=heard: heard.append(read_all(asked)))
            self.assertEqual(self.ask(filtering, site.port, "localhost", "bad.example"), "TLSV1_ALERT_ACCESS_DENIED")
            wait_until(lambda heard=heard: heard, "the site's connection to end")
            self.assertEqual(heard, [b""])

    def test_a_host_loses_an_exemption_that_the_name_does_not_share(self):
        both = "localhost\nboth.example\n"
        filtering = self.filter(files={"sample.dom": both, "whitelist.dom": both})
        self.run_cases(filtering, (
            ("localhost", "both.example", "localhost,SERVER NAME:both.example"),
            ("localhost", "other.example", "localhost,STATUS:BLOCKED,BlackListed:Sample category")))
        addresses = {"requests.block_ip_hosts": True, "requests.allowed_ip_hosts": ["127.0.0.*"]}
        self.run_cases(self.filter(addresses, self.lists), (
            ("127.0.0.1", "other.example", "127.0.0.1,SERVER NAME:other.example"),
            ("127.0.0.1", "bad.example", "bad.example,STATUS:BLOCKED,BlackListed:Sample category")))

    def test_names_that_have_to_match(self):
        self.run_cases(self.filter({"requests.match_server_name": True}, self.lists), (
            ("localhost", "localhost", "localhost,STATUS:TUNNELED,HTTPS REQUEST"),
            ("localhost", "other.example", "localhost,STATUS:BLOCKED,Tunnel Blocked:another server name"),
            ("localhost", None, "localhost,STATUS:BLOCKED,Tunnel Blocked:no server name"),
            ("127.0.0.1", "other.example", "127.0.0.1,SERVER NAME:other.example")))
