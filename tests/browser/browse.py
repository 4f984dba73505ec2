"""Starts the peers of the browser test and the filter in all its ways, and node, which drives Chromium through them."""
import contextlib
import json
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
from harness import Filter, Squid, make_certificate, scratch_folder

CHECKS = {"content.blocked_types": ["application/x-forbidden"], "content.report_urls": False, "log.debug_level": 1,
          "requests.block_uploads": True, "requests.upload_sites": ["localhost/allowed", "[::1]/allowed"],
          "upstream.timeout": 60}


def start_filter(cleanup, way, scans):
    filtering = Filter(cleanup, CHECKS | {"upstream.proxy": way["upstream"], "scanning.scan": scans},
                       listen=(f"{way['address']}:0",))
    if scans:
        filtering.clamd(cleanup)
    return way | {"proxy": f"{way['address']}:{filtering.port}"}


def main():
    if subprocess.run(["node", "-e", "require.resolve('playwright-core')"], capture_output=True).returncode:
        return print("browser test skipped: playwright-core is not installed")
    with contextlib.ExitStack() as peers:
        folder, squid = scratch_folder(), f"127.0.0.1:{Squid(peers.callback).port}"
        ways = [dict(zip(("name", "upstream", "address", "host"), way)) for way in (
            ("direct", "", "127.0.0.1", "localhost"), ("through squid", squid, "127.0.0.1", "localhost"),
            ("over IPv6", "", "[::1]", "[::1]"))]
        make_certificate(folder)
        told = {"chromium": shutil.which("chromium"), "folder": str(folder),
                "unscanned": [start_filter(peers.callback, way, False) for way in ways],
                "scanned": [start_filter(peers.callback, way, True) for way in ways]}
        return subprocess.run(["node", HERE / "browse.js", json.dumps(told)]).returncode


sys.exit(main())
