"""The binary interface: what the library exports, and a C host that links it and serves."""
import os
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
from harness import Case, accepts, ask, free_port, scratch_folder, start  # noqa: E402


def symbols(which):
    listing = subprocess.check_output(["nm", "-D", which, os.environ["NETSIFT_LIBRARY"]], text=True)
    names = {line.split()[-1] for line in listing.splitlines()}
    return {name for name in names if not name.startswith("__odr_asan.")}


class Api(Case):
    def test_exports_are_the_interface(self):
        listed = re.findall(r"^    (\w+);$", (HERE.parent.parent / "cmake/exports.map").read_text(), re.M)
        self.assertEqual(symbols("--defined-only"), set(listed))

    def test_the_host_defines_the_popup_script(self):
        self.assertLessEqual({"popupblocker", "popuplen"}, symbols("--undefined-only"))

    def test_the_documented_hosts_are_the_compiled_ones(self):
        docs = HERE.parent.parent / "docs"
        shown = re.findall(r"```c\n(.*?)```", (docs / "host.md").read_text(), re.S)
        self.assertEqual(shown, [(docs / name).read_text() for name in ("host.c", "workers.c")])

    def test_c_hosts_serve(self):
        for host in ("NETSIFT_C_HOST", "NETSIFT_C_WORKERS"):
            root, port = scratch_folder(), free_port()
            subprocess.run([HERE.parent.parent / "scripts/layout.sh", root], check=True)
            start([os.environ[host], port, root], root / "out", lambda: accepts(port), self.addCleanup)
            for _ in range(8):
                self.assert_page(ask(port), "block", "Connections to port 25 are not allowed.")
