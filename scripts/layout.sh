#!/bin/bash
# usage: scripts/layout.sh ROOT   fills a folder from share/ so that netsiftd --root ROOT finds all it needs.
# A file that was changed since it was put there is left alone; .shipped/ remembers what was put.
set -euo pipefail
share=$(cd "$(dirname "$0")/../share" && pwd)
mkdir -p "$1"
root=$(cd "$1" && pwd)
etc=$root/opt/Velmora/etc/netsift
mkdir -p "$etc" "$root/opt/Velmora/var/run" "$root/opt/Velmora/var/spool" "$root/var/Velmora/var/log" \
  "$root/site" "$root/clamd/db" "$root/.shipped"

put() { # FILE FOLDER
  local target=$2/${1##*/} shipped=$root/.shipped/${1##*/}
  cmp -s "$1" "$shipped" && [ -e "$target" ] && return
  if [ ! -e "$target" ] || cmp -s "$target" "$shipped"; then cp "$1" "$target"; fi
  cp "$1" "$shipped"
}

for file in "$share"/template* "$share"/errortemplate.htm "$share"/popupblocker* "$share"/netsiftd.toml \
  "$share"/lists/*; do
  if [ -e "$file" ]; then put "$file" "$etc"; fi
done
for file in "$share"/site/*; do put "$file" "$root/site"; done
put "$share/clamd/netsift.ndb" "$root/clamd/db"
