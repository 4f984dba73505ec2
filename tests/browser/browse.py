"""Starts the peers of the browser test and the filter in all its ways, and node, which drives Chromium through them."""
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
from harness import Filter, Squid, scratch_folder, start

CHROMIUM = "/usr/bin/chromium"
CHECKS = {"content.blocked_types": ["application/x-forbidden"], "content.report_urls": False, "log.debug_level": 1,
          "requests.block_uploads": True, "requests.upload_sites": ["localhost/allowed"], "upstream.timeout": 60,
          "requests.use_blocked_ip_hosts": True, "requests.blocked_ip_hosts": ["127.0.0.1"]}
LISTS = {"sample.url.orig": "localhost/listed\n"}


def missing():
    if not os.path.exists(CHROMIUM):
        return "chromium"
    if not shutil.which("node"):
        return "node"
    found = subprocess.run(["node", "-e", "require.resolve('playwright-core')"], capture_output=True)
    return "playwright-core" if found.returncode else None


def start_filter(cleanup, proxy, scans):
    root = scratch_folder()
    run = root / "opt/Velmora/var/run"
    run.mkdir(parents=True)
    filtering = Filter(cleanup, CHECKS | {"upstream.proxy": proxy, "scanning.scan": scans}, files=LISTS, folder=root)
    if scans:
        (root / "clamd.conf").write_text(f"DatabaseDirectory {root}/clamd/db\nLocalSocket {run}/vlcavd.sock\n"
                                         f"TemporaryDirectory {root}\nForeground yes\n")
        start(["clamd", f"--config-file={root}/clamd.conf"], root / "clamd.log", (run / "vlcavd.sock").exists, cleanup)
    return filtering.port


def main():
    if what := missing():
        print(f"browser test skipped: {what} is not installed")
        return 0
    with contextlib.ExitStack() as peers:
        folder, proxy = scratch_folder(), f"127.0.0.1:{Squid(peers.callback).port}"
        subprocess.run(["openssl", "req", "-x509", "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                        "-subj", "/CN=localhost", "-keyout", folder / "key", "-out", folder / "cert"],
                       check=True, capture_output=True)
        told = {"chromium": CHROMIUM, "folder": str(folder),
                "unscanned": [start_filter(peers.callback, way, False) for way in ("", proxy)],
                "scanned": [start_filter(peers.callback, way, True) for way in ("", proxy)]}
        return subprocess.run(["node", HERE / "browse.js", json.dumps(told)]).returncode


sys.exit(main())
