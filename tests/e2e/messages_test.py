"""Messages of RFC 9112, well formed and not, and what becomes of each: here and, where that is installed, at squid.
What differs has its reason beside it; what both read alike is asked of the parsers in tests/http."""
import contextlib
import re
import shutil
import socket

from harness import PATIENCE, Case, Peer, Squid

GET, POST = "GET http://SITE/ HTTP/1.1", "POST http://SITE/ HTTP/1.1"
PASSED, BAD = "200 kept GET / HTTP/1.1|", "400 closed"
LONG = "a" * 8000
# An outcome: the status of each answer, whether the connection is kept, what the site saw; SITE is its address. In what
# is sent LF stands for CR LF, and these for what a message should not have; behind END the client says no more.
LF, CR, END = "\u240a", "\u240d", "\u2404"
NEWLINE = "\n"
SAME = None   # squid's outcome
UNASKED = ""  # not tried there: it waits for a name server

# Request lines. Squid guesses where blanks are too many, of another kind or in the address, and where the version is
# none (it is taken for a part of the address then); who guesses may guess otherwise than the site or a filter behind.
LINES = [
    (GET, PASSED, SAME),
    ("GET http://SITE/%zz%00<\"\xff HTTP/1.1", "200 kept GET /%zz%00<\"\xff HTTP/1.1|", SAME),
    (f"GET http://SITE/{LONG}{LONG} HTTP/1.1", "414 closed", BAD),  # RFC 9112 section 3 has a status for it
    ("GET http://SITE/ HTTP/1.10", BAD, "505 closed"),
    ("GET http://SITE/ http/1.1", BAD, "200 closed GET /http/1.1 HTTP/1.1|"),
    ("GET http://SITE/ HTTP/1,1", BAD, "200 closed GET /HTTP/1,1 HTTP/1.1|"),
    ("GET http://SITE/ HTTP/1.1 ", BAD, "200 closed GET /HTTP/1.1 HTTP/1.1|"),
    ("GET  http://SITE/ HTTP/1.1", BAD, PASSED),
    ("GET\thttp://SITE/ HTTP/1.1", BAD, PASSED),
    ("GET http://SITE/\tHTTP/1.1", BAD, PASSED),
    ("GET http://SITE/a b HTTP/1.1", BAD, "200 kept GET /ab HTTP/1.1|"),
    (" GET http://SITE/ HTTP/1.1", BAD, SAME),
    ("GET http://SITE/\x7f HTTP/1.1", BAD, SAME),
    (f"\n\n{GET}", BAD, PASSED),  # one empty line is what old clients leave (RFC 9112 section 2.2)
    ("get http://SITE/ HTTP/1.1", "200 kept get / HTTP/1.1|", PASSED),  # methods are case-sensitive
    (f"{'M' * 33} http://SITE/ HTTP/1.1", "501 closed", BAD),  # squid's limit is another
    ("G{T http://SITE/ HTTP/1.1", BAD, SAME),
    ("GET / HTTP/1.1", PASSED, BAD),  # Host tells the site, and transparent clients send it so
    ("GET http://SITE/a#b HTTP/1.1", "200 kept GET /a HTTP/1.1|", "200 kept GET /a#b HTTP/1.1|"),  # is no part of it
    ("GET http://u:p@SITE/ HTTP/1.1", BAD, PASSED),  # RFC 9110 section 4.2.4: such addresses deceive
    ("GET http:/SITE/ HTTP/1.1", BAD, SAME),
    ("GET http://[::1/ HTTP/1.1", BAD, "503 kept"),
    ("GET ftp://SITE/ HTTP/1.1", "501 closed", UNASKED),
    ("GET https://SITE/ HTTP/1.1", "501 closed", UNASKED),  # would be the filter's own TLS; clients send CONNECT
    ("OPTIONS http://SITE HTTP/1.1", "200 kept OPTIONS * HTTP/1.1|", "200 kept OPTIONS / HTTP/1.1|"),  # section 3.2.4
    ("CONNECT http://SITE/ HTTP/1.1", BAD, UNASKED),
    ("CONNECT localhost HTTP/1.1", BAD, "503 closed"),
]

# Fields of a GET, behind `Host: SITE` where they begin with "+". Squid reads the head's lines generously, in which a
# site or a proxy may see other lines; in what names the site it takes the request line's word and overlooks the rest.
FIELDS = [
    ("", BAD, PASSED),
    ("Host:", PASSED, SAME),
    ("+Host: SITE", BAD, PASSED),
    ("+Host: other", BAD, PASSED),
    ("Host: a b", BAD, PASSED),
    ("Host: a, b", BAD, PASSED),
    ("Host: u@SITE", BAD, PASSED),
    ("Host: http://SITE/", BAD, PASSED),
    ("+X(: y", BAD, SAME),
    (f"+X: a{CR}b", BAD, "200 kept GET / HTTP/1.1; X: a b|"),
    (f"+X: a{LF}Y: b", BAD, "200 kept GET / HTTP/1.1; X: a; Y: b|"),
    ("+X: a\n b", BAD, "200 kept GET / HTTP/1.1; X: a b|"),
    ("+ X: a", BAD, PASSED),
    (" X: a\nHost: SITE", BAD, PASSED),
    ("+Y:" + "\nY:" * 98, "200 kept GET / HTTP/1.1" + "; Y:" * 99 + "|", SAME),
    ("+Y:" + "\nY:" * 99, "431 closed", "200 kept GET / HTTP/1.1" + "; Y:" * 100 + "|"),  # more than anybody sends
    ("+Connection: keep-alive, close", "200 closed GET / HTTP/1.1|", SAME),
    ("+Proxy-Connection: close", "200 closed GET / HTTP/1.1|", SAME),
    ("+Connection: ,X,\nX: y", PASSED, SAME),
    ("+Connection: \"X\"\nX: y", "200 kept GET / HTTP/1.1; X: y|", SAME),
    ("+Connection: TE\nTE: gzip", PASSED, SAME),
    ("+Connection: Host", PASSED, SAME),
    ("+Trailer: X", PASSED, SAME),
    ("+Expect: 100-continue", PASSED, "200 kept GET / HTTP/1.1; Expect: 100-continue|"),  # there is no body
    ("+Max-Forwards: 0", "200 kept GET / HTTP/1.1; Max-Forwards: 0|", PASSED),  # is for TRACE and OPTIONS alone
    ("+Range: lines=1", "200 kept GET / HTTP/1.1; Range: lines=1|", SAME),
]

# A POST's framing and its body. Squid leaves without an answer where it is surprised in the middle of a body; where a
# length is malformed it says that there is none.
ARRIVED = "200 kept POST / HTTP/1.1|body"
CHUNKED, LENGTH = "Transfer-Encoding: chunked", "Content-Length: "
BODIES = [
    ("", "", "200 kept POST / HTTP/1.1|", SAME),
    (f"{LENGTH}4", "body", ARRIVED, SAME),
    (f"{LENGTH}4,", "body", BAD, ARRIVED),  # the empty element might be a length that somebody took out
    (f"{LENGTH}5", f"body{END}", "closed", SAME),
    *((LENGTH + length, "body", BAD, "411 closed")
      for length in ("", "+4", "-4", "0x4", "4.0", "4a", "4 4", "4,5", f"4\n{LENGTH}5", "18446744073709551620")),
    (CHUNKED, "4\nbody\n0\n\n", ARRIVED, SAME),
    (f"{CHUNKED}\nConnection: Transfer-Encoding", "4\nbody\n0\n\n", ARRIVED, SAME),
    *((f"Transfer-Encoding: {coding}", "4\nbody\n0\n\n", "501 closed", SAME)
      for coding in ("", "xchunked", "chunked, chunked", "gzip, chunked", "chunked, identity", "chunked;a=b",
                     '"chunked"', f"gzip\n{CHUNKED}", f"chunked\n{CHUNKED}")),
    ("Transfer-Encoding: chunked\x0b", "4\nbody\n0\n\n", "501 closed", ARRIVED),  # not a blank in RFC 9110
    ("Transfer-Encoding: identity", "", "501 closed", "200 kept POST / HTTP/1.1|"),  # left HTTP with RFC 7230
    ("Transfer-Encoding:\n chunked", "4\nbody\n0\n\n", BAD, ARRIVED),  # folded
    ("Transfer-Encoding : chunked", "4\nbody\n0\n\n", BAD, SAME),
    *((CHUNKED, f"{body}0\n\n", ARRIVED, SAME)
      for body in ("0004\nbody\n", "4;a;b=c\nbody\n", "2;a=\"b\"\nbo\n2\ndy\n", "4 ;a\nbody\n")),
    (CHUNKED, "4 \nbody\n0\n\n", ARRIVED, "closed"),  # some pad the size with blanks, as servers do too
    (CHUNKED, f"A\n{'b' * 10}\n0\n\n", f"200 kept POST / HTTP/1.1|{'b' * 10}", SAME),
    *((CHUNKED, body, BAD, "closed")
      for body in (" 4\nbody\n0\n\n", "0x4\nbody\n0\n\n", "+4\nbody\n0\n\n", "4g\nbody\n0\n\n", "\nbody\n0\n\n",
                   "4\nbodyy\n0\n\n", "10000000000000004\nbody\n0\n\n", f"4{LF}body\n0\n\n", f"4\nbody{LF}0\n\n",
                   f"4\nbody\n0{LF}{LF}", f"4;a{LF}b\nbody\n0\n\n", f"4;a{CR}b\nbody\n0\n\n", "4;\0\nbody\n0\n\n")),
    (CHUNKED, f"4;{LONG}\nbody\n0\n\n", BAD, ARRIVED),  # an extension holds 4 KiB
    (CHUNKED, "4\nbody\n0\nT : x\nT\n y\n\n", ARRIVED, SAME),
    (CHUNKED, f"4\nbody\n0\nT: x{LF}\n\n", BAD, ARRIVED),  # in trailers as in heads
    (CHUNKED, "4\nbody\n0\n" + "T: x\n" * 101 + "\n", BAD, ARRIVED),  # a limit like that of a head
    (CHUNKED, f"4\nbody{END}", "closed", SAME),
    (CHUNKED, f"4\nbody\n0\n{END}", "closed", SAME),
]

# What follows on the connection.
NEXT = "GET http://SITE/2 HTTP/1.1\nHost: SITE\n\n"
LAST = "GET http://SITE/next HTTP/1.1\nHost: SITE\nConnection: close\n\n"
BOTH = "200 200 kept POST / HTTP/1.1|body; GET /2 HTTP/1.1|"
FOLLOWED = [
    ("", f"\n{NEXT}", BOTH, SAME),  # old clients end a body so (RFC 9112 section 2.2)
    ("", f"\n\n{NEXT}", "200 400 closed POST / HTTP/1.1|body", BOTH),  # and nobody with two
    ("", NEXT, BOTH, SAME),
    ("", f"XX{NEXT}", "200 200 kept POST / HTTP/1.1|body; XXGET /2 HTTP/1.1|", SAME),
    ("Connection: close\n", NEXT, "200 closed POST / HTTP/1.1|body", SAME),
    ("", "/2 \n\n", "200 400 closed POST / HTTP/1.1|body", SAME),
]

# Answers to a GET, and what the client gets of them. Squid keeps the connection behind an error page, and takes what is
# no head for HTTP/0.9 and delivers it as a text of no type, which nobody could judge here.
OK, ENDED = "200 kept |ok", "502 closed"
BROKEN, AS_TEXT = "502 kept", "200 kept |%s"
HEAD, TWO = "HTTP/1.1 200 OK\n", "Content-Length: 2\n\nok"
ANSWERS = [
    *((f"{line}\n{TWO}", OK, SAME) for line in ("HTTP/1.1 200 OK", "HTTP/1.1 200", "HTTP/1.1 200 ", "HTTP/1.0 200 OK",
                                               "HTTP/1.2 200 OK", "HTTP/1.1 200 \xe4\t!")),
    *((f"{line}\n{TWO}", ENDED, BROKEN) for line in ("HTTP/1.1 200OK", "HTTP/1.1 20 OK", "HTTP/1.1 2000 OK",
                                                    "HTTP/1.1 099 OK", "HTTP/1.1  200 OK", f"HTTP/1.1 200 a{CR}b",
                                                    "HTTP/1.1 200 a\0b")),
    *((text, ENDED, AS_TEXT % text) for text in ("just text", f"HTTP/2.0 200 OK\n{TWO}", f"http/1.1 200 OK\n{TWO}",
                                                f"\n{HEAD}{TWO}")),
    ("", ENDED, BROKEN),
    (f"HTTP/1.1 600 X\n{TWO}", "600 kept |ok", BROKEN),  # a client treats it as a 5xx (RFC 9110 section 15)
    *((f"{HEAD}{field}\n{TWO}", ENDED, BROKEN) for field in ("X y", "X", ": y", "X: a\0b")),
    (f"{HEAD} X: y\n{TWO}", ENDED, OK),  # goes on from no field
    (f"{HEAD}X: a{CR}b\n{TWO}", ENDED, "200 kept X: a b|ok"),  # browsers may end the line there
    (f"{HEAD}Content-Type: text/plain\nContent-Type: text/html\n{TWO}", ENDED,  # judged as one, and shown as the other
     "200 kept Content-Type: text/plain; Content-Type: text/html|ok"),
    (f"{HEAD}" + "X: y\n" * 99 + TWO, "200 kept " + "; ".join(["X: y"] * 99) + "|ok", SAME),
    (f"{HEAD}" + "X: y\n" * 100 + TWO, ENDED, "200 kept " + "; ".join(["X: y"] * 100) + "|ok"),  # a limit
    (f"{HEAD}X: {LONG * 9}\n{TWO}", ENDED, BROKEN),
    *((f"{HEAD}Content-Length: {length}\n\nok", ENDED, BROKEN)
      for length in ("", "+2", "-2", "2a", "2\nContent-Length: 3", "99999999999999999999")),
    (f"{HEAD}Content-Length: 5\n\nok", "broken", SAME),
    (f"{HEAD}{TWO}more", OK, SAME),
    (f"{HEAD}\nok", OK, SAME),
    *((f"{HEAD}Transfer-Encoding: chunked\n\n{body}", OK, SAME)
      for body in ("2\nok\n0\n\n", "02;a=b\nok\n0\n\n", "1\no\n1\nk\n0\n\n")),
    (f"{HEAD}{CHUNKED}\n\n2 \nok\n0\n\n", OK, "broken"),  # old servers pad the size
    *((f"{HEAD}{CHUNKED}\n\n{body}", "broken", SAME) for body in ("2\nok\n", "2\nok\n0\n", "2\nokk\n0\n\n")),
    *((f"{HEAD}{CHUNKED}\n\n{body}", ENDED, "broken")  # it is looked into before the head goes on
      for body in ("x\nok\n0\n\n", "10000000000000002\nok\n0\n\n", f"2{LF}ok\n0\n\n")),
    *((f"{HEAD}Transfer-Encoding: {coding}\n\n2\nok\n0\n\n", ENDED, BROKEN)
      for coding in ("chunked, chunked", "gzip, chunked")),
    (f"{HEAD}Connection: X\nX: y\n{TWO}", OK, SAME),
    (f"{HEAD}Upgrade: h2c\n{TWO}", OK, SAME),
    ("HTTP/1.1 204 X\nContent-Length: 5\n\n", "204 kept |", SAME),
    ("HTTP/1.1 304 X\nContent-Length: 5\n\n", "304 kept |", SAME),
    ("HTTP/1.1 205 X\n\n", "205 kept |", SAME),
    (f"HTTP/1.1 199 X\nContent-Length: 2\n\n{HEAD}{TWO}", "199 200 kept |ok", SAME),
    ("HTTP/1.1 101 X\n\n", ENDED, BROKEN),
]

# Fields that belong to one hop, or say how this one's body is cut as they should.
HOP = ("host:", "connection:", "via:", "content-length:", "transfer-encoding: chunked\r\n")


def wire(text, port):
    for mark, meant in (("SITE", "localhost:PORT"), ("PORT", str(port)), ("\n", "\r\n"), (LF, "\n"), (CR, "\r"),
                        (END, "")):
        text = text.replace(mark, meant)
    return text.encode("latin-1")


def exactly(reader, count):
    data = reader.read(count)
    if len(data) < count:
        raise EOFError
    return data


def read_message(reader, bodiless=(), to_end=False):
    """A message's lines and its body; of one that is cut short, EOFError."""
    lines, body = [], b""
    while not lines or lines[-1] != "\r\n":
        lines.append(reader.readline().decode("latin-1"))
        if not lines[-1].endswith("\n"):
            raise EOFError
    head = "".join(lines).lower()
    length = re.search("\ncontent-length: *(\\d+)", head)
    if lines[0][9:12] in bodiless:
        pass
    elif "\ntransfer-encoding:" in head:
        while size := int(reader.readline().partition(b";")[0] or b"", 16):
            body += exactly(reader, size + 2)[:size]
        while exactly(reader, 1) != b"\r":
            reader.readline()
        exactly(reader, 1)
    elif length or to_end:
        body = exactly(reader, int(length[1])) if length else reader.read()
    return lines[0].strip(), lines[1:-1], body


def told(line, lines, body, sent):
    """What a message says, as far as the one that was sent had it."""
    names = {field.partition(":")[0].strip().lower() for field in re.split("[\n\u240a]", sent)[1:]}
    fields = [re.sub(r":[ \t]*(.*?)[ \t]*\r\n", r": \1", field).strip() for field in lines
              if field.partition(":")[0].lower() in names and not field.lower().startswith(HOP)]
    return "; ".join([line, *fields][not line:]) + "|" + body.decode("latin-1").replace("\r\n", "\n")


class Messages(Case):
    @classmethod
    def setUpClass(cls):
        cls.site = Peer(cls.addClassCleanup, cls.serve)
        cls.squid = Squid(cls.addClassCleanup).port if shutil.which("squid") else None

    @classmethod
    def serve(cls, connection):
        reader = connection.makefile("rb")
        with contextlib.suppress(EOFError, ValueError):
            while True:
                line, lines, body = read_message(reader)
                if line.startswith("GET /next "):
                    return connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 4\r\nConnection: close\r\n\r\nnext")
                cls.seen.append(told(line, lines, body, cls.sent))
                connection.sendall(wire(f"{HEAD}{TWO}" if cls.answer is None else cls.answer, cls.site.port))
                if cls.answer is not None:
                    return

    def outcome(self, port, sent, answer):
        type(self).sent, type(self).answer, type(self).seen = sent if answer is None else f"\n{answer}", answer, []
        statuses, shown, end = [], "", "closed"
        with socket.create_connection(("127.0.0.1", port), PATIENCE) as client, contextlib.suppress(ConnectionError):
            client.sendall(wire(sent, self.site.port))
            if END in sent:
                client.shutdown(socket.SHUT_WR)
            reader = client.makefile("rb")
            try:
                while end == "closed" and reader.peek(1):
                    line, lines, body = read_message(reader, ("199", "204", "304"), True)
                    end = "kept" if body == b"next" else end
                    if end == "closed":
                        statuses.append(line[9:12])
                        shown = told("", lines, body, self.sent)
                    if any(re.match("(?i)connection: *close", field) for field in lines):
                        self.assertEqual(reader.read(), b"")
                        break
                    if line[9] != "1" and sum(status >= "200" for status in statuses) == 1 + ("/2 " in sent):
                        client.sendall(wire(LAST, self.site.port))
            except (EOFError, ValueError):
                end = "broken"
        isGood = answer is not None and end == "kept" and statuses[-1] < "400" or statuses[-1:] == ["600"]
        return " ".join([*statuses, end, *([shown] * isGood if answer is not None else ["; ".join(self.seen)])]).strip()

    def check(self, rows):
        for name, port in (("here", self.filter({"log.debug_level": 1}).port), ("squid", self.squid)):
            for sent, answer, here, there in rows if port else ():
                expected = here if name == "here" or there is SAME else there
                with self.subTest(name, sent=sent[:300], answer=answer and answer[:300]):
                    if expected != UNASKED:
                        self.assertEqual(self.outcome(port, sent, answer), expected)

    def test_requests(self):
        self.check([
            # Some interfaces are asked so; squid takes no body with a GET.
            (f"{GET}\nHost: SITE\n{LENGTH}4\n\nbody", None, "200 kept GET / HTTP/1.1|body", "411 closed"),
            *((f"{line}\nHost: SITE\n\n", None, *outcomes) for line, *outcomes in LINES),
            *((f"{GET}\n{fields.replace('+', f'Host: SITE{NEWLINE}', 1)}{NEWLINE * bool(fields)}\n", None, *outcomes)
              for fields, *outcomes in FIELDS),
            *((f"{POST}\nHost: SITE\n{fields}{NEWLINE * bool(fields)}\n{body}", None, *outcomes)
              for fields, body, *outcomes in BODIES),
            *((f"{POST}\nHost: SITE\n{fields}{LENGTH}4\n\nbody{rest}", None, *outcomes)
              for fields, rest, *outcomes in FOLLOWED)])

    def test_answers(self):
        self.check([(f"{GET}\nHost: SITE\n\n", *row) for row in ANSWERS])
