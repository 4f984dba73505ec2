#!/bin/bash
# usage: scripts/browse.sh
# Browses local sites in headless Chromium without the filter, through it, through it and squid, and through it over
# IPv6, and prints what came of it. Needs chromium, node and npm (Debian: chromium nodejs npm); without them it is
# skipped, and says so.
set -euo pipefail
cd "$(dirname "$0")/.."

for command in chromium node npm; do
  if ! command -v "$command" >/dev/null; then
    echo "browser test skipped: $command is not installed"
    exit 0
  fi
done

scripts/packages.sh run upstream scan test
[ -e build/build.ninja ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C build --quiet netsiftd

modules=$PWD/build/browser
mkdir -p "$modules"
if ! cmp -s tests/browser/package.json "$modules/package.json"; then
  cp tests/browser/package.json "$modules"
  npm install --prefix "$modules" --no-package-lock --no-audit --no-fund --silent || rm "$modules/package.json"
fi

NETSIFTD=$PWD/build/netsiftd NODE_PATH=$modules/node_modules exec python3 -B tests/browser/browse.py
