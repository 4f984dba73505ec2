#!/bin/bash
# usage: scripts/packages.sh SECTION...   installs what is missing of those sections of packages.txt
set -euo pipefail
cd "$(dirname "$0")"

wanted=()
for section in "$@"; do
  while read -r name; do wanted+=("$name"); done < <(
    awk -v section="[$section]" '/^\[/ { inside = $0 == section; next } inside && NF && !/^#/' packages.txt)
done

missing=()
for name in "${wanted[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$name")
done
[ ${#missing[@]} -gt 0 ] || exit 0

sudo=()
[ "$(id -u)" = 0 ] || sudo=(sudo)
for needed in apt-get "${sudo[@]}"; do
  if ! command -v "$needed" >/dev/null; then
    echo "missing packages, which cannot be installed without $needed: ${missing[*]}" >&2
    [ "$needed" = apt-get ] || echo "as root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
done

# nginx, squid, clamd and what the benches compare with are run from folders of our own: the packages' services must
# neither start now nor at boot.
policy=/usr/sbin/policy-rc.d
units=()
for unit in nginx squid clamav-daemon clamav-freshclam fcgiwrap privoxy tinyproxy prometheus prometheus-node-exporter; do
  [ -e "/lib/systemd/system/$unit.service" ] || units+=("$unit")
done
if [ ! -e "$policy" ]; then
  trap '"${sudo[@]}" rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' | "${sudo[@]}" tee "$policy" >/dev/null
  "${sudo[@]}" chmod 755 "$policy"
fi

echo "installing: ${missing[*]}"
"${sudo[@]}" apt-get update -qq || echo "apt-get update failed; trying with the lists at hand" >&2
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null

if [ -d /run/systemd/system ]; then
  for unit in "${units[@]}"; do
    for file in /lib/systemd/system/"$unit".{service,socket}; do
      if [ -e "$file" ]; then "${sudo[@]}" systemctl disable --quiet "${file##*/}" || true; fi
    done
  done
fi
