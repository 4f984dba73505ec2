"""Programs that people use through a proxy, with the sites that belong to them: over IPv4 and IPv6, direct and through
squid. The site answers nobody else than the filter."""
import base64
import hashlib
import io
import json
import os
import random
import shutil
import subprocess
import sys
import tarfile
import zipfile

from harness import Case, Filter, Nginx, Squid, scratch_folder, start
from ipv6_test import BOTH, FOUR, has_six

# `NETSIFT_PUSH_MIB=50 python3 -m unittest peers_test.Peers.test_git` pushes as much.
PUSHED = int(os.environ.get("NETSIFT_PUSH_MIB", "3")) << 20
SITE = """
    listen [::1]:<port>; if ($http_via !~ netsift) { return 421; } types { application/json json; text/html html; }
    location /git/ { client_max_body_size 0; fastcgi_pass unix:<folder>/cgi; fastcgi_param REMOTE_USER pusher;
      fastcgi_param SCRIPT_FILENAME /usr/lib/git-core/git-http-backend; fastcgi_param GIT_PROJECT_ROOT <folder>;
      fastcgi_param GIT_HTTP_EXPORT_ALL 1; fastcgi_param PATH_INFO $uri; fastcgi_param QUERY_STRING $query_string;
      fastcgi_param REQUEST_METHOD $request_method; fastcgi_param CONTENT_TYPE $content_type;
      fastcgi_param CONTENT_LENGTH $content_length; fastcgi_param HTTP_CONTENT_ENCODING $http_content_encoding; }"""


def zipped(files):
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w") as archive:
        for name, text in files.items():
            archive.writestr(name, text)
    return data.getvalue()


def tarred(files):
    data = io.BytesIO()
    with tarfile.open(fileobj=data, mode="w:gz") as archive:
        for name, text in files.items():
            entry = tarfile.TarInfo(name)
            entry.size = len(text)
            archive.addfile(entry, io.BytesIO(text.encode()))
    return data.getvalue()


class Peers(Case):
    @classmethod
    def setUpClass(cls):
        more = SITE if has_six() else SITE.replace("listen [::1]:<port>;", "")
        cls.origin = Nginx(cls.addClassCleanup, more)
        cls.noise = cls.origin.put("noise", random.Random(1).randbytes(PUSHED))
        shipped, squid = {"upstream.timeout": 60}, f"127.0.0.1:{Squid(cls.addClassCleanup).port}"
        filters = [Filter(cls.addClassCleanup, shipped, listen=BOTH if has_six() else (FOUR,)),
                   Filter(cls.addClassCleanup, shipped | {"upstream.proxy": squid})]
        # The proxy that is asked, and the site.
        cls.ways = [(f"http://127.0.0.1:{each.port}", f"http://localhost:{cls.origin.port}") for each in filters]
        if has_six():
            cls.ways.append((f"http://[::1]:{filters[0].ports[1]}", f"http://[::1]:{cls.origin.port}"))

    def every_way(self, program):
        """Each way with a folder of its own, in which what is run has its home."""
        if not shutil.which(program):
            self.skipTest(f"{program} is not installed")
        for proxy, site in self.ways:
            yield proxy, site, scratch_folder()

    def run_in(self, folder, *argv, **variables):
        kept = {name: os.environ[name] for name in ("PATH", "LANG") if name in os.environ}
        done = subprocess.run([str(a) for a in argv], cwd=folder, env=kept | {"HOME": str(folder)} | variables,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        self.assertEqual(done.returncode, 0, f"{argv}, {variables}: {done.stdout[-3000:]}")
        return done.stdout

    def test_curl(self):
        for proxy, site, home in self.every_way("curl"):
            (home / "half").write_bytes(self.noise[:100_000])
            (home / "sent").write_bytes(self.noise[:2_000_000])
            curl = ("curl", "-q", "-sSf", "--noproxy", "", "-x", proxy)
            self.run_in(home, *curl, "-C", "-", "-o", "half", f"{site}/noise")
            self.assertEqual((home / "half").read_bytes(), self.noise)
            connections = self.run_in(home, *curl, "-w", "%{num_connects}", *["-o", "/dev/null", f"{site}/noise"] * 3)
            self.assertEqual(connections, b"100")
            for body in (("-T", "sent", "-H", "Transfer-Encoding: chunked"), ("--data-binary", "@sent")):
                self.run_in(home, *curl, "-X", "POST", *body, f"{site}/post/")
                self.assertEqual(self.origin.bodies()[-1], self.noise[:2_000_000])

    def test_wget(self):
        self.origin.put("page.html", b"<link rel=stylesheet href=style.css><img src=noise><p>text")
        self.origin.put("style.css", b"p { color: red }")
        for proxy, site, home in self.every_way("wget"):
            (home / "noise").write_bytes(self.noise[:100_000])
            self.run_in(home, "wget", "-q", "-c", f"{site}/noise", http_proxy=proxy)
            self.assertEqual((home / "noise").read_bytes(), self.noise)
            self.run_in(home, "wget", "-q", "-p", "-nd", "-P", "all", f"{site}/page.html", http_proxy=proxy)
            self.assertEqual({file.name: file.stat().st_size for file in (home / "all").glob("[nps]*")},
                             {"page.html": 58, "style.css": 16, "noise": len(self.noise)})
            self.assertIn(b"304", self.run_in(home, "wget", "-S", "-N", f"{site}/noise", http_proxy=proxy))

    def test_apt(self):
        (self.origin.www / "repository").mkdir()
        stanzas = ""
        for number in range(5):  # asked for without waiting for the answers
            package = self.origin.put(f"repository/made-up{number}.deb", self.noise[number:200_000])
            stanzas += (f"Package: made-up{number}\nVersion: 1\nArchitecture: all\nMaintainer: nobody <a@b.example>\n"
                        f"Filename: ./made-up{number}.deb\nSize: {len(package)}\nDescription: made up\n"
                        f"SHA256: {hashlib.sha256(package).hexdigest()}\n\n")
        self.origin.put("repository/Packages", stanzas.encode())
        for proxy, site, home in self.every_way("apt-get"):
            for folder in ("lists/partial", "archives/partial", "etc"):
                (home / folder).mkdir(parents=True)
            (home / "sources.list").write_text(f"deb [trusted=yes] {site}/repository ./\n")
            (home / "apt.conf").write_text(
                f'Dir "{home}"; Dir::State "{home}"; Dir::State::status "/dev/null"; Dir::Cache "{home}";\n'
                f'Dir::Etc "{home}"; Dir::Etc::sourceparts "/dev/null"; Dir::Log "{home}"; Debug::NoLocking "true";\n'
                f'APT::Sandbox::User ""; Acquire::http::Proxy "{proxy}"; Acquire::Languages "none";\n')
            for command in (("update",), ("download", *(f"made-up{number}" for number in range(5)))):
                self.run_in(home, "apt-get", "-q", *command, APT_CONFIG=str(home / "apt.conf"))
            for number in range(5):
                self.assertEqual((home / f"made-up{number}_1_all.deb").read_bytes(), self.noise[number:200_000])

    def test_git(self):
        cgi = self.origin.folder / "cgi"
        if not shutil.which("fcgiwrap"):
            self.skipTest("fcgiwrap is not installed")
        start(["fcgiwrap", "-f", "-s", f"unix:{cgi}"], self.origin.folder / "log", cgi.exists, self.addCleanup)
        for proxy, site, home in self.every_way("git"):
            repository = self.origin.folder / "git" / home.name
            def git(*command, folder=home, proxy=proxy):
                self.run_in(folder, "git", *command, http_proxy=proxy, GIT_CONFIG_NOSYSTEM="1")
            git("init", "-q", "--bare", repository)
            git("config", "http.receivepack", "true", folder=repository)
            git("init", "-q", "work")
            (home / "work/noise").write_bytes(self.noise)
            git("add", ".", folder=home / "work")
            git("-c", "user.name=a", "-c", "user.email=a@b.example", "commit", "-qm", "noise", folder=home / "work")
            push = ("-c", "http.postBuffer=65536", "push", "-q")  # in chunks, since it is larger
            git(*push, f"{site}/git/{home.name}", "HEAD:main", folder=home / "work")
            git("clone", "-q", "-b", "main", f"{site}/git/{home.name}", "again")
            self.assertEqual((home / "again/noise").read_bytes(), self.noise)

    def test_pip(self):
        if subprocess.run([sys.executable, "-m", "pip", "--version"], capture_output=True).returncode:
            self.skipTest("pip is not installed")
        info, wheel = "made_up-1.dist-info", "simple/made-up/made_up-1-py3-none-any.whl"
        (self.origin.www / "simple/made-up").mkdir(parents=True)
        files = {"made_up.py": "said = 'hello'\n" * 50_000, f"{info}/WHEEL": "Wheel-Version: 1.0\nTag: py3-none-any\n",
                 f"{info}/METADATA": "Metadata-Version: 2.1\nName: made-up\nVersion: 1\n", f"{info}/RECORD": ""}
        digest = hashlib.sha256(self.origin.put(wheel, zipped(files))).hexdigest()
        self.origin.put("simple/made-up/index.html", f"<a href='/{wheel}#sha256={digest}'>made_up</a>".encode())
        for proxy, site, home in self.every_way(sys.executable):
            self.run_in(home, sys.executable, "-m", "pip", "-q", "--isolated", "--disable-pip-version-check", "install",
                        "--proxy", proxy, "--index-url", f"{site}/simple/", "--target", "taken", "made-up")
            self.assertEqual((home / "taken/made_up.py").read_text(), files["made_up.py"])

    def test_npm(self):
        """Not among the packages of a test machine: npm comes with some hundreds of others."""
        described = {"name": "made-up", "version": "1.0.0", "main": "index.js"}
        package = tarred({"package/package.json": json.dumps(described), "package/index.js": "//\n" * 50_000})
        for proxy, site, home in self.every_way("npm"):
            (self.origin.www / "registry").mkdir(exist_ok=True)
            self.origin.put("registry/made-up.tgz", package)
            digest = base64.b64encode(hashlib.sha512(package).digest()).decode()
            dist = {"tarball": f"{site}/registry/made-up.tgz", "integrity": f"sha512-{digest}"}
            self.origin.put("registry/made-up", json.dumps({
                "name": "made-up", "dist-tags": {"latest": "1.0.0"},
                "versions": {"1.0.0": described | {"dist": dist}}}).encode())
            self.run_in(home, "npm", "install", "--silent", "--registry", f"{site}/registry/", "--proxy", proxy,
                        "--noproxy", "", "--no-audit", "--no-fund", "--no-update-notifier", "made-up")
            self.assertEqual((home / "node_modules/made-up/index.js").read_text(), "//\n" * 50_000)
