#!/bin/bash
# usage: scripts/run.sh [--upstream] [--scan] [--listen ADDRESS:PORT] [netsiftd's own arguments]
# Builds and starts the filter, unprivileged, from the folder run/. Ctrl-C stops it.
#   --upstream   through a squid of its own instead of direct to each site
#   --scan       downloads are scanned by a clamd of its own that knows one made-up signature
#   --listen     where browsers connect, 127.0.0.1:8080 if not given, an IPv6 address in brackets; of several the last one;
#                port 0 takes a free one
set -euo pipefail
cd "$(dirname "$0")/.."
siteport=8081 squidport=3129
root=$PWD/run
etc=$root/opt/Velmora/etc/netsift

upstream='' scan='' listen=127.0.0.1:8080 arguments=()
while [ $# -gt 0 ]; do
  case $1 in
    --upstream) upstream=yes ;;
    --scan) scan=yes ;;
    --listen)
      listen=${2?--listen: which ADDRESS:PORT?}
      shift
      ;;
    --listen=*) listen=${1#*=} ;;
    *) arguments+=("$1") ;;
  esac
  shift
done
[ "$(id -u)" != 0 ] || echo "running as root: the filter needs no rights, and what it writes to run/ will be root's" >&2

scripts/packages.sh run ${upstream:+upstream} ${scan:+scan}
[ -e build/build.ninja ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C build --quiet netsiftd
scripts/layout.sh run
own=$etc/netsiftd.toml shipped=$root/.shipped/netsiftd.toml
if cmp -s "$own" "$shipped"; then # nobody has changed it: the sample sites are on this machine
  sed -i 's/^local_addresses = .*/local_addresses = "pass"/' "$own"
  cp "$own" "$shipped"
fi

started=() spool=''
cleanup() {
  trap - EXIT
  for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait
  [ -z "$spool" ] || rm -rf "$spool"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
while answers "$siteport"; do siteport=$((siteport + 1)); done # somebody else's
while answers "$squidport"; do squidport=$((squidport + 1)); done
wait_for() { # WHAT COMMAND...
  local what=$1
  shift
  for _ in {1..200}; do
    if "$@"; then return; fi
    sleep 0.05
  done
  echo "$what did not start" >&2
  exit 1
}

config=$etc/netsiftd.toml
change() { sed -i "s|^$1 = .*|$1 = $2|" "$config"; } # KEY VALUE, in this run's copy of the configuration
if [ -n "$upstream$scan" ]; then
  config=$root/this-run.toml
  cp "$etc/netsiftd.toml" "$config"
fi

if [ -n "$upstream" ]; then
  cat >"$root/squid.conf" <<END
http_port 127.0.0.1:$squidport
http_access allow localhost
cache deny all
cache_mem 8 MB
pid_filename none
access_log none
cache_store_log none
cache_log /dev/null
coredump_dir $root
shutdown_lifetime 0 seconds
END
  squid -N -f "$root/squid.conf" &
  started+=($!)
  wait_for squid answers "$squidport"
  change proxy "\"127.0.0.1:$squidport\""
fi

if [ -n "$scan" ]; then
  spool=$(mktemp -d /tmp/netsift.XXXXXX) # the scan file's path must be short
  cat >"$root/clamd/clamd.conf" <<END
DatabaseDirectory $root/clamd/db
LocalSocket $root/opt/Velmora/var/run/vlcavd.sock
TemporaryDirectory $spool
Foreground yes
END
  rm -f "$root/opt/Velmora/var/run/vlcavd.sock"
  clamd --config-file="$root/clamd/clamd.conf" >"$root/clamd/clamd.log" 2>&1 &
  started+=($!)
  wait_for clamd test -S "$root/opt/Velmora/var/run/vlcavd.sock"
  change scan true
  change spool_folder "\"$spool/\""
fi

python3 -m http.server --bind 127.0.0.1 --directory "$root/site" "$siteport" >"$root/site.log" 2>&1 &
started+=($!)
wait_for 'the site with sample pages' answers "$siteport"

# What it says goes to the terminal too: whether it listens, and where, or why not.
said=$root/netsiftd.out
: >"$said"
build/netsiftd --config "$config" --root "$root" --listen "$listen" ${arguments[@]+"${arguments[@]}"} \
  2> >(exec tee -i "$said" >&2) &
filter=$!
started+=("$filter")
until address=$(sed -n 's/^netsiftd: listening on //p' "$said") && [ -n "$address" ]; do
  if ! kill -0 "$filter" 2>/dev/null; then
    wait "$filter"
    exit # it had only something to print
  fi
  sleep 0.05
done

address=${address/#0.0.0.0:/127.0.0.1:}
proxy=http://${address/#\[::]:/[::1]:}
cat <<END
configuration, lists and templates: $etc
logs: $root/var/Velmora/var/log

To try, in another terminal (or set the browser's proxy to ${proxy#http://}):
  curl -x $proxy http://localhost:$siteport/               a page that passes
  curl -x $proxy https://www.debian.org/                   a page over HTTPS
  curl -x $proxy http://localhost:$siteport/words.html     blocked for its words
  curl -x $proxy http://blocked.example/              blocked by a list
END
[ -z "$scan" ] || echo "  curl -x $proxy http://localhost:$siteport/marked.txt     blocked by the virus scan"
echo

wait "$filter"
