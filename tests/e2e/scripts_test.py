"""scripts/run.sh and scripts/packages.sh, in a copy of the tree that has nothing to build; what scripts/mutate.py
changes."""
import importlib.util
import os
import re
import shutil
import socket
import subprocess

from harness import NETSIFTD, TOP, Case, ask, scratch_folder, start


class RunScript(Case):
    def setUp(self):
        self.top = scratch_folder()
        for folder in ("scripts", "share"):
            shutil.copytree(TOP / folder, self.top / folder)
        (self.top / "build").mkdir()
        (self.top / "build/build.ninja").touch()
        (self.top / "build/netsiftd").symlink_to(NETSIFTD)
        self.commands = self.top / "commands"
        self.commands.mkdir()
        self.stub("ninja", "exit 0")
        self.stub("apt-get", "exit 1")

    def stub(self, name, script):
        (self.commands / name).write_text(f"#!/bin/sh\n{script}\n")
        (self.commands / name).chmod(0o755)

    def run_script(self, *arguments):
        return ["env", f"PATH={self.commands}:{os.environ['PATH']}", self.top / "scripts/run.sh", *arguments]

    def test_it_serves_where_the_last_listen_says_and_shows_that(self):
        log = self.top / "log"
        with socket.create_server(("127.0.0.1", 0)) as taken:
            start(self.run_script("--listen", f"127.0.0.1:{taken.getsockname()[1]}", "--listen=0.0.0.0:0"), log,
                  lambda: "blocked by a list" in log.read_text(), self.addCleanup)
        text = log.read_text()
        port = re.search(r"listening on 0\.0\.0\.0:(\d+)", text)[1]
        self.assertEqual(set(re.findall(r"(?:-x http://|proxy to )([\d.:]+)", text)), {f"127.0.0.1:{port}"})
        self.assertEqual("running as root" in text, os.getuid() == 0)
        blocked, passed = (ask(port, f"GET http://{site}/ HTTP/1.1\r\nHost: {site}\r\nConnection: close\r\n\r\n".encode())
                           for site in ("blocked.example", re.search(r"localhost:\d+", text)[0]))
        self.assert_page(blocked, "block", "blocked.example")
        self.assertIn(b" 200 OK\r\n", passed)

    def test_a_port_that_is_taken_is_said_in_place_of_what_to_try(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            place = f"127.0.0.1:{taken.getsockname()[1]}"
            done = subprocess.run(self.run_script("--listen", place), capture_output=True, text=True)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"netsiftd: {place}: cannot listen: Address already in use\n", done.stderr)
        self.assertEqual(done.stdout, "")

    def test_without_root_and_sudo_the_missing_packages_are_named(self):
        self.stub("id", "echo 1000")
        self.stub("dpkg-query", "case $4 in python3) printf installed;; *) exit 1;; esac")
        for name in ("bash", "dirname", "awk"):
            (self.commands / name).symlink_to(shutil.which(name))
        done = subprocess.run([shutil.which("bash"), self.top / "scripts/packages.sh", "run"], capture_output=True,
                              text=True, env={"PATH": str(self.commands)})
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, "without sudo: cmake curl .*\nas root: apt-get install cmake curl (?!.*python3)")


class Mutate(Case):
    SOURCE = '''\
#include <a/b-c.h>
/* 1 < 2 */
std::vector<int> list = read("a < 1"); // true && 1
if (first(list,
          last)) return false;
if (i == 3 && a < b) total += 'x' - size_3;
int kept(3);
break;
'''

    def test_code_is_changed_and_nothing_else(self):
        found = importlib.util.spec_from_file_location("mutate", TOP / "scripts/mutate.py")
        module = importlib.util.module_from_spec(found)
        found.loader.exec_module(module)
        changes = [(self.SOURCE[start:end], text) for start, end, text, _ in sorted(module.changes(self.SOURCE))]
        self.assertEqual(changes, [
            ("first(list,\n          last)", "!(first(list,\n          last))"), ("false", "true"),
            ("i == 3 && a < b", "!(i == 3 && a < b)"), (" == ", " != "), ("3", "2"), ("3", "4"), (" && ", " || "),
            (" < ", " <= "), (" += ", " -= "), ("'x'", "'y'"), (" - ", " + "), ("3", "2"), ("3", "4"), ("break;", ";")])
