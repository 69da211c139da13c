#!/bin/sh
# bench_update.sh - wall time, peak memory and bytes received of
# `tidewrack-tool update` of 100 feeds of 50 items each, served by nginx on
# 127.0.0.1 with gzip and ETags, beside newsboat reloading the same 100
# addresses in the same run.
#
#   bench/net/bench_update.sh [TOOL] [ROUNDS]
#
# TOOL defaults to build/bench/tools/tool/tidewrack-tool (a Release build).
# Each round: a first update into an empty folder (100 new feeds, 5000
# entries), a second update of every feed (nothing new), then newsboat's
# reload into an empty cache, and its second reload. The bytes are what
# nginx sent for the run's requests (headers and bodies). Needs python3,
# nginx and /usr/bin/time; newsboat is skipped when it is missing.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
tool=${1:-$root/build/bench/tools/tool/tidewrack-tool}
rounds=${2:-3}
feeds=100
items=50
[ -x "$tool" ] || { echo "no tool at $tool (build it: cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWRACK_TESTS=OFF && cmake --build build/bench --target tidewrack-tool)" >&2; exit 2; }

work=$(mktemp -d)
server_pid=
cleanup() {
    [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM

# The documents: RSS 2.0, dated items with guids and a paragraph of HTML each, of words
# drawn at random, so that they compress about as much as real feeds do.
python3 - "$work/www" "$feeds" "$items" <<'PY'
import os, sys
out, feeds, items = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
os.makedirs(out)
import random
rng = random.Random(1)
words = ("lorem ipsum dolor sit amet consectetur adipiscing elit sed do eiusmod tempor incididunt ut labore "
         "et dolore magna aliqua enim ad minim veniam quis nostrud exercitation ullamco laboris nisi aliquip "
         "ex ea commodo consequat duis aute irure in reprehenderit voluptate velit esse cillum fugiat nulla").split()
for f in range(feeds):
    parts = ['<?xml version="1.0" encoding="UTF-8"?>\n<rss version="2.0"><channel>',
             f'<title>Feed {f}</title><link>http://example.org/{f}/</link><description>Feed number {f}</description>']
    for i in range(items):
        day = 1 + i % 28
        parts.append(f'<item><title>Item {i} of feed {f}</title><link>http://example.org/{f}/{i}</link>'
                     f'<guid>http://example.org/{f}/{i}</guid>'
                     f'<pubDate>Mon, {day:02d} Jan 2024 {i % 24:02d}:00:00 GMT</pubDate>'
                     f'<category>cat{i % 7}</category>'
                     f'<description>&lt;p&gt;{" ".join(rng.choice(words) for _ in range(60))}&lt;/p&gt;</description></item>')
    parts.append('</channel></rss>\n')
    with open(os.path.join(out, f'f{f}.xml'), 'w') as fh:
        fh.write(''.join(parts))
PY

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
mkdir -p "$work/nginx"
cat >"$work/nginx/nginx.conf" <<EOF
daemon off;
worker_processes 1;
pid $work/nginx/nginx.pid;
error_log $work/nginx/error.log;
events { worker_connections 256; }
http {
    log_format bytes '\$bytes_sent \$status';
    access_log $work/nginx/access.log bytes;
    client_body_temp_path $work/nginx; proxy_temp_path $work/nginx; fastcgi_temp_path $work/nginx;
    uwsgi_temp_path $work/nginx; scgi_temp_path $work/nginx;
    types { application/rss+xml xml; }
    gzip on; gzip_min_length 0; gzip_types application/rss+xml;
    server { listen 127.0.0.1:$port; root $work/www; }
}
EOF
chmod -R a+rX "$work"
nginx=$(command -v nginx || echo /usr/sbin/nginx)
"$nginx" -p "$work/nginx" -c "$work/nginx/nginx.conf" -e "$work/nginx/error.log" &
server_pid=$!
i=0
while ! python3 -c "import urllib.request; urllib.request.urlopen('http://127.0.0.1:$port/f0.xml')" 2>/dev/null; do
    i=$((i + 1)); [ $i -gt 50 ] && { echo "nginx did not start" >&2; exit 1; }; sleep 0.1
done
urls=$work/urls.txt
: >"$urls"
f=0
while [ $f -lt $feeds ]; do echo "http://127.0.0.1:$port/f$f.xml" >>"$urls"; f=$((f + 1)); done

# measure NAME COMMAND...: one line of wall seconds, peak resident KB, and
# the bytes and the 200 and 304 answers nginx sent during the command.
measure() {
    name=$1; shift
    before=$(wc -l <"$work/nginx/access.log")
    /usr/bin/time -v -o "$work/time.txt" "$@" >/dev/null 2>"$work/stderr.txt" || echo "  ($name exited non-zero)" >&2
    wall=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$work/time.txt" |
        awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; print s }')
    rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time.txt")
    sent=$(tail -n +$((before + 1)) "$work/nginx/access.log" |
        awk '{ b += $1; c[$2]++ } END { printf "%d B (%d x 200, %d x 304)", b, c[200], c[304] }')
    printf '%-34s %8.3f s %9d KB  %s\n' "$name" "$wall" "$rss" "$sent"
}

have_newsboat=0
command -v newsboat >/dev/null 2>&1 && have_newsboat=1
echo "$feeds feeds x $items items, $(du -sk "$work/www" | cut -f1) KB of documents, $rounds rounds"
round=1
while [ $round -le "$rounds" ]; do
    rm -rf "$work/data" "$work/newsboat"
    mkdir -p "$work/newsboat"
    # shellcheck disable=SC2046
    measure "tidewrack-tool update (new)" "$tool" update -path "$work/data" $(cat "$urls")
    measure "tidewrack-tool update (again)" "$tool" update -path "$work/data"
    entries=$("$tool" dump -path "$work/data" | python3 -c 'import json,sys; d=json.load(sys.stdin); print(len(d["feeds"]), len(d["entries"]))')
    echo "  reader: feeds entries = $entries"
    if [ $have_newsboat = 1 ]; then
        : >"$work/newsboat/config"
        measure "newsboat -x reload (new)" env HOME="$work/newsboat" newsboat -u "$urls" -c "$work/newsboat/cache.db" \
            -C "$work/newsboat/config" -x reload
        measure "newsboat -x reload (again)" env HOME="$work/newsboat" newsboat -u "$urls" -c "$work/newsboat/cache.db" \
            -C "$work/newsboat/config" -x reload
        count=$(env HOME="$work/newsboat" newsboat -u "$urls" -c "$work/newsboat/cache.db" -C "$work/newsboat/config" \
            -x print-unread 2>/dev/null | head -1)
        echo "  newsboat: $count"
    fi
    round=$((round + 1))
done
