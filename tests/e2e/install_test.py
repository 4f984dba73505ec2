"""What `cmake --install` puts into a folder of its own (DESTDIR): a daemon that serves from there, headers and library
that a host is built with, and files of the administrator's that stay."""
import os
import re
import shlex
import subprocess

from harness import TOP, Case, accepts, ask, free_port, scratch_folder, start


def install(stage, prefix="/usr/local"):
    done = subprocess.run(["cmake", "--install", os.environ["NETSIFT_BUILD"], "--prefix", prefix],
                          env=os.environ | {"DESTDIR": str(stage)}, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


class Installed(Case):
    @classmethod
    def setUpClass(cls):
        cls.stage = scratch_folder()
        cls.etc = cls.stage / "opt/Velmora/etc/netsift"
        install(cls.stage)

    def test_the_daemon_serves_from_where_it_was_put(self):
        daemon, log = self.stage / "usr/local/sbin/netsiftd", self.stage / "log"
        start([daemon, "--root", self.stage, "--config", self.etc / "netsiftd.toml", "--listen", "127.0.0.1:0"], log,
              lambda: "listening on" in log.read_text(), self.addCleanup)
        port = int(re.search(r"listening on 127\.0\.0\.1:(\d+)", log.read_text())[1])
        self.assert_page(ask(port), "block", "Connections to port 25 are not allowed.")
        asked = [daemon.with_name("netsiftctl"), "--root", self.stage, "explain", "http://localhost:25/"]
        control = subprocess.run(asked, capture_output=True, text=True)
        self.assertEqual((control.returncode, control.stderr), (1, ""))
        libraries = subprocess.check_output(["ldd", daemon], text=True)
        self.assertIn(str(self.stage / "usr/local/lib/libnetsift.so.1"), libraries.replace("sbin/../", ""))

    def test_a_host_is_built_with_the_headers_and_the_library(self):
        local, host, port = self.stage / "usr/local", self.stage / "host", free_port()
        flags = subprocess.check_output(
            ["pkg-config", "--cflags", "--libs", "netsift"], text=True,
            env={"PATH": os.environ["PATH"], "PKG_CONFIG_PATH": str(local / "lib/pkgconfig"),
                 "PKG_CONFIG_SYSROOT_DIR": str(self.stage)})
        subprocess.run([*shlex.split(os.environ["CC"]), "-std=c11", "-Wall", "-Wextra", "-Werror", "-D_GNU_SOURCE",
                        local / "share/doc/netsift/docs/host.c", *flags.split(), f"-Wl,-rpath,{local}/lib",
                        "-o", host], check=True)
        start([host, port, self.stage], self.stage / "out", lambda: accepts(port), self.addCleanup)
        self.assert_page(ask(port), "block", "Connections to port 25 are not allowed.")

    def test_paths_are_those_of_the_prefix(self):
        stage = scratch_folder()
        install(stage, "/elsewhere")
        unit = (stage / "elsewhere/lib/systemd/system/netsiftd.service").read_text()
        self.assertIn("\nExecStart=/elsewhere/sbin/netsiftd --config /opt/Velmora/etc/netsift/netsiftd.toml\n", unit)
        self.assertIn("\nlibdir=/elsewhere/lib\n", (stage / "elsewhere/lib/pkgconfig/netsift.pc").read_text())
        for name in ("opt/Velmora/var/run", "var/Velmora/var/log", "elsewhere/lib/sysusers.d/netsift.conf"):
            self.assertTrue((stage / name).exists(), name)

    def test_what_the_administrator_has_stays(self):
        stage = scratch_folder()
        etc = stage / "opt/Velmora/etc/netsift"
        install(stage)
        for name in ("netsiftd.toml", "template.htm", "whitelist.dom"):
            (etc / name).write_text("mine\n")
        (etc / "template").unlink()
        (etc / "template").symlink_to("elsewhere")
        (etc / "sample.dom").unlink()
        said = install(stage)
        for name in ("netsiftd.toml", "template.htm", "whitelist.dom"):
            self.assertEqual((etc / name).read_text(), "mine\n")
            beside = "" if name.endswith(".dom") else f" (what is shipped now is beside it as {name}.new)"
            self.assertIn(f"-- Kept: {etc}/{name}{beside}\n", said)
        self.assertEqual((etc / "template.htm.new").read_text(), (TOP / "share/template.htm").read_text())
        self.assertEqual(os.readlink(etc / "template"), "elsewhere")
        self.assertEqual((etc / "sample.dom").read_text(), (TOP / "share/lists/sample.dom").read_text())
        self.assertEqual(sorted(file.name for file in etc.glob("*.new")),
                         ["netsiftd.toml.new", "template.htm.new", "template.new"])
