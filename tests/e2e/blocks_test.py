"""Every kind of block: its page, its line in the debug log, its record in the access log."""
from harness import Case, Nginx, Squid, read_head

RATED = """<html><head><meta http-equiv="PICS-Label"
 content='(PICS-1.1 "http://www.icra.org/ratingsv02.html" l r (la 0 va 3))'></head><p>text"""


class Blocks(Case):
    settings = {"content.blocked_types": ["x-forbidden"],
                "requests.block_uploads": True, "requests.upload_sites": ["/post/allowed"]}
    host = "localhost"

    @classmethod
    def setUpClass(cls):
        cls.origin = Nginx(cls.addClassCleanup)
        cls.origin.put("x.forbidden", b"a program\n")
        cls.base = f"http://{cls.host}:{cls.origin.port}"

    def setUp(self):
        self.filtering = self.filter(self.settings)

    def test_each_block(self):
        host = self.host
        for url, address, page, line, record in (
                ("http://localhost:25/x", "localhost/x", "access to port:25 not allowed",
                 "Port Blocked:25", ["Port Blocked", "25"]),
                ("http://example.org/sample/1", "example.org/sample/1", "Black Listed URL  in category Sample category",
                 "BlackListed:Sample category", ["Sample category", "BlackListed"]),
                ("http://www.blocked.example/", "www.blocked.example", "Black Listed URL  in category Sample category",
                 "BlackListed:Sample category", ["Sample category", "BlackListed"]),
                (f"{self.base}/x.forbidden", f"{host}/x.forbidden", "access to content type x-forbidden blocked",
                 "MIME Blocked:application/x-forbidden", ["MIME Blocked", "application/x-forbidden"])):
            with self.subTest(url):
                self.assert_blocked(self.filtering, url, address, page, line, record)

    def assert_blocked(self, filtering, url, address, page, line, record):
        self.assert_page(filtering.fetch(url), "block", page, address, "postmaster@localhost", "Netsift[")
        self.assertEqual(filtering.results()[-1], f"Client IP:127.0.0.1,URL:{address},STATUS:BLOCKED,{line}")
        self.assertEqual(filtering.blocks()[-1], ["127.0.0.1", address, *record])

    def test_hosts_that_are_addresses(self):
        filtering = self.filter(self.settings | {"requests.block_ip_hosts": True})
        self.assert_blocked(filtering, "http://127.0.0.1/x", "127.0.0.1/x", "access to IP based URLS not allowed",
                            "IP Blocking:access to ip based url is blocked", ["IP Blocking", "127.0.0.1"])
        self.filtering = self.filter(self.settings | {"requests.block_ip_hosts": True,
                                                      "requests.allowed_ip_hosts": ["127.0.*"]})
        self.origin.put("ip.txt", b"text\n")
        self.assertEqual(self.filtering.fetch(f"http://127.0.0.1:{self.origin.port}/ip.txt").body, b"text\n")

    def test_ads_leave_a_line_and_no_record(self):
        head = self.filtering.exchange(b"GET http://ads.example/x HTTP/1.1\r\nHost: ads.example\r\n\r\n", end=True)
        self.assertIn(b"\r\nContent-Length: 0\r\n", head)
        self.assertEqual(self.filtering.results(),
                         ["Client IP:127.0.0.1,URL:ads.example/x,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER"])
        self.assertEqual(self.filtering.blocks(), [])

    def test_messengers_get_a_page_of_their_own(self):
        self.assert_page(self.filtering.fetch("http://blocked.example/Messenger.dll"), "messenger", "Black Listed URL")

    def test_uploads(self):
        file = self.origin.folder / "file.txt"
        file.write_bytes(b"confidential " * 20)
        for path, form, blocked in (("/post", f"f=@{file}", True), ("/post", "f=text", False),
                                    ("/post/allowed", f"f=@{file}", False)):
            with self.subTest(path=path, form=form):
                answer = self.filtering.fetch(self.base + path, "-F", form)
                if blocked:
                    self.assert_page(answer, "block", "Attachments are not allowed to this server")
                    self.filtering.wait_for_line("Upload/Attachment is BLOCKED.")
                else:
                    self.assertEqual((answer.code, answer.body), (200, b"taken\n"))
        self.assertEqual(self.filtering.blocks(), [])
        self.assertEqual([b"confidential" in body for body in self.origin.bodies()][-2:], [False, True])

    def test_ratings(self):
        self.origin.put("rated.html", RATED.encode())
        answer = self.filter(self.settings | {"ratings.check": True}).fetch(f"{self.base}/rated.html")
        self.assert_page(answer, "block", "ICRA rating violated")
        answer = self.filtering.fetch(f"{self.base}/rated.html")
        self.assertIn(b"<p>text", answer.body)

    def test_popup_script(self):
        script = (self.filtering.etc / "popupblocker.js.html").read_bytes()
        text = b"<p>" + b"text " * 30000
        for name, before in (("page.html", b"<!doctype html><html lang=en>"), ("page.txt", b"<html>"),
                             ("calendar.html", b"<html>")):
            self.origin.put(name, before + text)
        filtering = self.filter(self.settings | {"popups.block": True},
                                files={"popup.url.orig": f"{self.host}/calendar*\n"})
        page = filtering.fetch(f"{self.base}/page.html")
        self.assertEqual(page.body, b"<!doctype html><html lang=en>" + script + text)
        self.assertRegex(filtering.wait_for_line("STATUS:DELIVERED"),
                         rf"^Client IP:127.0.0.1,SIZE:{65536 + len(script)},URL:{self.host}/page.html,STATUS:DELIV")
        for name in ("page.txt", "calendar.html"):
            self.assertEqual(filtering.fetch(f"{self.base}/{name}").body, b"<html>" + text, name)

    def test_whitelisted_sites_pass(self):
        files = {f"{name}.url.orig": f"{self.host}/*\n" for name in ("whitelist", "sample", "adserver")}
        filtering = self.filter(self.settings, files=files)
        self.assertEqual(filtering.fetch(f"{self.base}/x.forbidden").body, b"a program\n")
        self.assert_page(filtering.fetch(f"http://{self.host}:25/"), "block", "access to port:25 not allowed")

    def test_filtering_switched_off(self):
        filtering = self.filter(self.settings | {"service.filtering": False})
        self.assertEqual(filtering.fetch(f"{self.base}/x.forbidden").body, b"a program\n")
        self.assertEqual(filtering.results(), [])

    def relayed_head(self, request):
        """Strictly, nothing may follow on a connection that is no longer read."""
        return request.replace(b"HTTP/1.1\r\n", b"HTTP/1.0\r\nVia: 1.1 netsift\r\n").replace(
            b"chat.test\r\n", b"chat.test\r\nConnection: close\r\n")

    def test_messenger_traffic_is_relayed_with_a_transcript(self):
        heads = []

        def chat(upstream):
            heads.append(read_head(upstream))
            upstream.sendall(b"\x00hello")
            self.assertEqual(upstream.recv(100), b"and to you\xff")

        peer = self.peer(chat)
        filtering = self.filter(self.settings | {
            "requests.pass_messengers": True, "requests.messenger_urls": ["/gateway.dll"],
            "requests.log_messengers": True, "upstream.proxy": f"127.0.0.1:{peer.port}"})
        request = b"POST http://chat.test/gateway.dll?x HTTP/1.1\r\nHost: chat.test\r\nAccept-Encoding: gzip\r\n\r\n"
        with filtering.connect() as client:
            client.sendall(request)
            self.assertEqual(client.recv(100), b"\x00hello")
            client.sendall(b"and to you\xff")
            self.assertEqual(client.recv(100), b"")
        self.assertEqual(heads, [self.relayed_head(request)])
        transcript = (filtering.logs / "127.0.0.1.log").read_bytes()
        self.assertIn(b" 127.0.0.1 ::New Tunnel Started---> \n\nProxy:\x00hello\nClient:and to you\xff\nProxy:",
                      transcript)


class BlocksOfOld(Blocks):
    """The same through an upstream proxy with StrictHttp = 0, and text shown as it came."""
    host = "origin.test"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        squid = Squid(cls.addClassCleanup)
        cls.settings = Blocks.settings | {"http.strict_http": False, "http.escape_text": False,
                                          "upstream.proxy": f"127.0.0.1:{squid.port}"}

    def relayed_head(self, request):
        return request
