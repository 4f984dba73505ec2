#!/bin/bash
# usage: bench/requests.sh [ROUNDS [KILOBYTES [kept]]]
# Requests a second for a page of 1 KB, or so many, a new connection each (or eight that are kept), 8 at a time, through
# netsiftd (build/netsiftd, or what NETSIFTD names), tinyproxy, squid and privoxy, one after the other in each round; the
# medians of the rounds. Each proxy runs from a scratch folder with a configuration of its own, on loopback, the others
# without cache and logs. netsiftd runs four times: as configured when shipped, so that the page's verdict is known after
# the first time; "judging" each time, with its cache off; and so with "lists" of a million domains and 200,000 URLs, or
# with "phrases" of 10 categories of 5,000, of which every word of the page begins some. `scripts/packages.sh test bench`
# installs what is needed.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-3}
size=${2:-1}
keep=()
[ "${3:-}" != kept ] || keep=(-k)
netsiftd=${NETSIFTD:-build/netsiftd}
requests=4000

folder=$(mktemp -d /tmp/ns-XXXXXX)
chmod 755 "$folder" # squid and privoxy may change to users of their own
started=()
cleanup() {
  trap - EXIT
  for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait
  rm -rf "$folder"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
ports=()
free_port() { # sets `port`
  while port=$((10000 + RANDOM % 20000)) && { [[ " ${ports[*]} " == *" $port "* ]] || answers "$port"; }; do :; done
  ports+=("$port")
}
start() { # NAME PORT COMMAND...
  local name=$1 port=$2
  shift 2
  "$@" >"$folder/$name.out" 2>&1 &
  started+=($!)
  for _ in {1..400}; do
    if answers "$port"; then return; fi
    sleep 0.05
  done
  echo "$name did not start:" >&2
  cat "$folder/$name.out" >&2
  exit 1
}

phrases() { # SEED: 5,000 as a list has to have them
  awk -v seed="$1" '
    function word(letters, at) {
      for (at = ""; letters > 0; letters--) at = at substr("abcdefghijklmnopqrstuvwxyz", 1 + int(26 * rand()), 1)
      return at
    }
    BEGIN {
      srand(seed)
      split("plain |words |plain words |words plain |", begin, "|")
      while (count < 5000) {
        phrase = begin[1 + int(5 * rand())] word(3 + int(6 * rand())) " " word(3 + int(6 * rand()))
        if (!(phrase in known)) count++
        known[phrase]
      }
      for (phrase in known) print "<" phrase ">10"
    }' | LC_ALL=C sort
  echo '<~ end of list ~>0'
}

free_port && site=$port
mkdir "$folder/www"
{ printf '<html><body>'; head -c $((size * 1000)) <(yes 'plain words'); printf '</body></html>'; } >"$folder/www/page.html"
cat >"$folder/nginx.conf" <<END
daemon off; master_process off; pid $folder/nginx.pid; error_log stderr;
events { worker_connections 256; }
http {
  client_body_temp_path $folder/c; proxy_temp_path $folder/p; fastcgi_temp_path $folder/f;
  uwsgi_temp_path $folder/u; scgi_temp_path $folder/s;
  access_log off; types { text/html html; }
  server { listen 127.0.0.1:$site; root $folder/www; }
}
END
start nginx "$site" nginx -e stderr -p "$folder" -c "$folder/nginx.conf"

declare -A proxies
for name in netsiftd judging lists phrases; do
  free_port && proxies[$name]=$port
  scripts/layout.sh "$folder/$name"
  config=$folder/$name/opt/Velmora/etc/netsift/netsiftd.toml
  sed -i 's/^local_addresses = .*/local_addresses = "pass"/' "$config"
  [ "$name" = netsiftd ] || sed -i '/^\[cache\]/,/^enabled/s/^enabled = .*/enabled = false/' "$config"
  if [ "$name" = lists ]; then
    seq -f 'host%.0f.example.com' 1000000 >>"${config%/*}/sample.dom"
    seq -f 'www.example.org/archive/page%.0f' 200000 >>"${config%/*}/sample.url.orig"
  fi
  [ "$name" != phrases ] || for category in many{0..9}; do
    phrases "${category#many}" >"${config%/*}/$category.phrase"
    printf '[[content.category]]\nname = "%s"\nphrases = "%s"\n' "$category" "$category" >>"$config"
  done
  start "$name" "$port" "$netsiftd" --config "$config" --root "$folder/$name" --listen "127.0.0.1:$port"
done

free_port && proxies[tinyproxy]=$port
cat >"$folder/tinyproxy.conf" <<END
Port $port
Listen 127.0.0.1
MaxClients 256
Allow 127.0.0.1
LogLevel Critical
LogFile "$folder/tinyproxy.log"
END
start tinyproxy "$port" tinyproxy -d -c "$folder/tinyproxy.conf"

free_port && proxies[squid]=$port
cat >"$folder/squid.conf" <<END
http_port 127.0.0.1:$port
http_access allow localhost
cache deny all
cache_mem 8 MB
pinger_enable off
netdb_filename none
max_filedescriptors 1024
pid_filename none
access_log none
cache_store_log none
cache_log /dev/null
coredump_dir $folder
shutdown_lifetime 0 seconds
END
start squid "$port" squid -N -f "$folder/squid.conf"

free_port && proxies[privoxy]=$port
cat >"$folder/privoxy.conf" <<END
confdir /etc/privoxy
logdir $folder
listen-address 127.0.0.1:$port
toggle 1
max-client-connections 256
actionsfile match-all.action
actionsfile default.action
filterfile default.filter
END
start privoxy "$port" privoxy --no-daemon "$folder/privoxy.conf"

names=(netsiftd judging lists phrases tinyproxy squid privoxy)
for ((round = 1; round <= rounds; round++)); do
  for name in direct "${names[@]}"; do
    through=()
    [ "$name" = direct ] || through=(-X "127.0.0.1:${proxies[$name]}")
    ab -q -n "$requests" -c 8 "${keep[@]}" "${through[@]}" "http://127.0.0.1:$site/page.html" >"$folder/ab.out"
    awk -v name="$name" '
      /^Requests per second/ { rate = $4 }
      /^(Failed requests|Non-2xx responses):/ { bad += $3 }
      END { print name, rate; if (bad > 0) { print bad, "requests failed through", name >"/dev/stderr"; exit 1 } }
    ' "$folder/ab.out" >>"$folder/rates"
  done
done

printf '%-12s %12s   %s\n' "$size KB ${3:-new}" 'requests/s' "median of $rounds rounds of $requests, in each:"
for name in direct "${names[@]}"; do
  mapfile -t rates < <(awk -v name="$name" '$1 == name { print $2 }' "$folder/rates" | sort -n)
  printf '%-12s %12.0f   %s\n' "$name" "${rates[$((rounds / 2))]}" "${rates[*]}"
done
