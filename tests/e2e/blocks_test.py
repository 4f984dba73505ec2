"""Every kind of block: its page, its line in the debug log, its record in the access log."""
import re

from harness import Road, read_head

RATED = b"""<html><head><meta http-equiv="PICS-Label"
 content='(PICS-1.1 "http://www.icra.org/ratingsv02.html" l r (la 0 va 3))'></head><p>text"""


class Blocks(Road):
    settings = {"content.blocked_types": ["x-forbidden"], "ratings.check": True,
                "requests.use_blocked_ip_hosts": True, "requests.blocked_ip_hosts": ["127.0.0.*"],
                "requests.block_uploads": True, "requests.upload_sites": ["/post/allowed"]}

    def test_each_block(self):
        self.origin.put("x.forbidden", b"a program\n")
        self.origin.put("rated.html", RATED)
        listed = self.says("Black Listed URL  in category Sample category",
                           "The address is on the list of the category &quot;Sample category&quot;.")
        for url, template, page, line, *record in (
                ("http://localhost:25/x", "block",
                 self.says("access to port:25 not allowed", "Connections to port 25 are not allowed."),
                 "Port Blocked:25", "Port Blocked", "25"),
                ("http://example.org/sample/1", "block", listed,
                 "BlackListed:Sample category", "Sample category", "BlackListed"),
                ("http://blocked.example/Messenger.dll", "messenger", listed,
                 "BlackListed:Sample category", "Sample category", "BlackListed"),
                ("http://127.0.0.1/x", "block",
                 self.says("access to IP based URLS not allowed", "Sites may not be called by their address in numbers"),
                 "IP Blocking:access to ip based url is blocked", "IP Blocking", "127.0.0.1"),
                (f"{self.base}/rated.html", "block",
                 self.says("ICRA rating violated", "The page&#39;s own rating (ICRA)"),
                 "Rating Violation:ICRA", "Rating Violation", "ICRA"),
                (f"{self.base}/x.forbidden", "block",
                 self.says("access to content type x-forbidden blocked", "Files of the type application/x-forbidden"),
                 "MIME Blocked:application/x-forbidden", "MIME Blocked", "application/x-forbidden")):
            with self.subTest(url):
                address = re.sub(":[0-9]+", "", url[7:])
                answer = self.filtering.fetch(url)
                self.assert_page(answer, template, page, address, "postmaster@localhost", "Netsift[")
                self.assertEqual(b"]:" in answer.body, self.of_old, "the reference without what ends a log's stamp")
                self.assertIn(f"URL:{address},STATUS:BLOCKED,{line}", self.filtering.results())
                self.assertEqual(self.filtering.blocks()[-1], (address, *record))

    def test_ads_leave_a_line_and_no_record(self):
        filtering = self.filter()
        answer = filtering.exchange(b"GET http://ads.example/x HTTP/1.1\r\nHost: ads.example\r\n\r\n")
        self.assertRegex(answer, rb"(?s)\AHTTP/1.1 200 OK\r\n.*\nContent-Length: 0\r\n\Z" if self.of_old else
                         rb"(?s)\AHTTP/1.1 403 Forbidden\r\n.*\nContent-Length: 0\r\n\r\n\Z")
        self.assertEqual(filtering.results(), ["URL:ads.example/x,STATUS:BLOCKED,BLOCKED SERVER:ADSERVER"])
        self.assertEqual(filtering.blocks(), [])

    def test_uploads_to_an_exempt_site_arrive_whole(self):
        file = self.origin.folder / "file.txt"
        file.write_bytes(b"confidential " * 20)
        self.filtering.fetch(f"{self.base}/post/allowed", "-F", f"f=@{file}")
        self.assertIn(b"confidential", self.origin.bodies()[-1])

    def test_popup_script(self):
        filtering = self.filter({"popups.block": True}, {"popup.url.orig": f"{self.host}/calendar*\n"})
        script = (filtering.etc / "popupblocker.js.html").read_bytes()
        before, after = b"<!doctype html><html lang=en>", b"<p>" + b"text " * 30000
        for name, put in (("page.html", script), ("page.txt", b""), ("calendar.html", b"")):
            self.origin.put(name, before + after)
            self.assertEqual(filtering.fetch(f"{self.base}/{name}").body, before + put + after, name)
        size = 65536 + len(script)
        self.assertEqual(filtering.results(), [f"SIZE:{size},URL:{self.host}/page.html,STATUS:DELIVERED"])

    def test_what_lets_all_of_it_pass(self):
        page = self.origin.put("x.forbidden", b"a program\n")
        everything = {f"{name}.url.orig": f"{self.host}/*\n" for name in ("whitelist", "sample", "adserver")}
        for settings, files in (({}, everything), ({"service.filtering": False}, {})):
            filtering = self.filter(settings, files)
            self.assertEqual(filtering.fetch(f"{self.base}/x.forbidden").body, page)
            self.assertEqual(filtering.results() + filtering.blocks(), [])

    def test_messenger_traffic_is_relayed_with_a_transcript(self):
        def chat(upstream):
            heads.append(read_head(upstream))
            upstream.sendall(b"\x00hello")
            self.assertEqual(upstream.recv(100), b"and to you\xff")

        heads, proxy = [], f"127.0.0.1:{self.peer(chat).port}"
        filtering = self.filter({"requests.pass_messengers": True, "requests.messenger_urls": ["/gateway.dll"],
                                 "requests.log_messengers": True, "upstream.proxy": proxy})
        head = b"POST http://chat.test/gateway.dll?x HTTP/1.1\r\nHost: chat.test\r\nAccept-Encoding: gzip\r\n\r\n"
        with filtering.connect() as client:
            client.sendall(head)
            self.assertEqual(client.recv(100), b"\x00hello")
            client.sendall(b"and to you\xff")
            self.assertEqual(client.recv(100), b"")
        if not self.of_old:  # nothing may follow on a connection that is no longer read
            head = head.replace(b"1.1\r\nHost", b"1.1\r\nVia: 1.1 netsift\r\nHost").replace(
                b"Acc", b"Connection: close\r\nAcc")
        self.assertEqual(heads, [head])
        self.assertIn(" 127.0.0.1 ::New Tunnel Started---> \n\nProxy:\x00hello\nClient:and to you\xff\nProxy:",
                      filtering.written(filtering.logs / "127.0.0.1.log"))


class BlocksOfOld(Blocks):
    of_old = True
