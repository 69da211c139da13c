#!/usr/bin/env bash
# The program's processor use while idle: started under a private X server,
# given 2 s to open its window and draw, then its user and system clock ticks
# are read from /proc over 10 s. An idle program sleeps in the window pump:
# the difference must be 0.
# Usage: bench/gfx/idle_cpu.sh [PROGRAM]   (default build/bench/app/tidewrack)
set -euo pipefail
program="$(realpath "${1:-build/bench/app/tidewrack}")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cd "$work"
xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp" env LIBGL_ALWAYS_SOFTWARE=1 \
  "$program" -path "$work/data" > out.txt 2>&1 &
runner=$!
pid=""
for _ in $(seq 50); do
  pid="$(pgrep -f "^$program -path $work/data" || true)"
  [ -n "$pid" ] && break
  sleep 0.1
done
[ -n "$pid" ] || { echo "the program did not start"; cat out.txt; exit 1; }
ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
sleep 2
start=$(ticks "$pid")
sleep 10
end=$(ticks "$pid")
kill -TERM "$pid"
wait "$runner" || true
used=$((end - start))
echo "idle: $used clock ticks of user and system time in 10 s (start-up took $start ticks)"
ls data/feed_data_*.bin > /dev/null || { echo "no snapshot saved"; exit 1; }
[ "$used" -eq 0 ]
