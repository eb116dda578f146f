#!/usr/bin/env bash
# The daemon's own cost while it indexes what it captured, with a real
# `vosklin run` and a fresh --home under /var/tmp:
#   1. the daemon starts on an empty watched folder and settles;
#   2. N text documents of the generated language (search_bench --write-texts)
#      are written into the folder; the daemon captures them (`vosklin settle`
#      returns when it has) and indexes as it goes, paced;
#   3. `vosklin index --json` is polled every 2 s until nothing is pending.
# For the capture phase (1 -> 2) and the indexing phase (settle -> pending 0):
# wall time, the daemon's CPU time (utime + stime of all its threads, from
# /proc/PID/stat) and CPU / wall as % of one core; then the daemon's peak RSS
# (VmHWM). The polling itself costs the daemon one catalog count per poll.
#
#   bench/search-daemon-cpu.sh [DOCUMENTS]     (default 3000)
# SKIP_BUILD=1 uses the binaries already in build/release.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
documents=${1:-3000}
if [ "${SKIP_BUILD:-0}" != 1 ]; then
  VOSKLIN_TARGETS="vosklin search_bench" bash "$root/scripts/build.sh" Release >/dev/null
fi
vosklin="$root/build/release/vosklin"
generator="$root/build/release/bench/search_bench"

work=$(mktemp -d /var/tmp/vosklin-search-cpu-XXXXXX)
home="$work/home"
tree="$work/tree"
daemon=""

say() { printf '%s\n' "$*" >&2; }
fail() { say "search-daemon-cpu: $*"; exit 1; }

running() {  # a child not yet reaped is a zombie: kill -0 would still succeed
  local state
  state=$(ps -o stat= -p "$1" 2>/dev/null) || return 1
  [[ $state != Z* ]]
}

stop_daemon() {
  [ -n "$daemon" ] || return 0
  kill -TERM "$daemon" 2>/dev/null || true
  for _ in $(seq 600); do running "$daemon" || break; sleep 0.1; done
  if running "$daemon"; then
    say "the daemon (pid $daemon) did not stop within 60 s of SIGTERM; killing it"
    kill -KILL "$daemon" 2>/dev/null || true
  fi
  wait "$daemon" 2>/dev/null || true
  daemon=""
}

cleanup() {
  stop_daemon
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

ticks_per_second=$(getconf CLK_TCK)
# utime + stime of every thread; the part after ") " starts at field 3, the state.
daemon_ticks() { sed 's/.*) //' "/proc/$daemon/stat" | awk '{print $12 + $13}'; }
daemon_status() { awk -v key="$1" '$1 == key":" {print $2}' "/proc/$daemon/status"; }  # in kB
now() { echo "$EPOCHREALTIME"; }
percent_of_core() {  # ticks, seconds
  echo "scale=1; 100 * $1 / $ticks_per_second / $2" | bc -l
}
between() { echo "scale=2; ($2 - $1) / 1" | bc -l; }
index_field() { "$vosklin" --home "$home" index --json | jq -r ".$1"; }

mkdir -p "$tree"
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
"$vosklin" --home "$home" folder add "$tree" >/dev/null
"$vosklin" --home "$home" run >"$work/daemon.log" 2>&1 &
daemon=$!
for _ in $(seq 600); do
  [ -f "$home/daemon.json" ] && break
  running "$daemon" || fail "the daemon ended early: $(tail -5 "$work/daemon.log")"
  sleep 0.1
done
[ -f "$home/daemon.json" ] || fail "the daemon did not publish daemon.json within 60 s"
"$vosklin" --home "$home" settle --timeout 600 >/dev/null || fail "settle did not return success"

# 2. Capture (and whatever indexing happens meanwhile).
t0=$(now); k0=$(daemon_ticks)
read -r written bytes < <("$generator" --write-texts="$tree" --texts="$documents")
"$vosklin" --home "$home" settle --timeout 1800 >/dev/null || fail "settle did not return success"
t1=$(now); k1=$(daemon_ticks)
pending_at_settle=$(index_field pending)

# 3. Indexing until nothing is pending.
deadline=$((SECONDS + 3600))
while :; do
  pending=$(index_field pending)
  [ "$pending" = 0 ] && break
  [ $SECONDS -lt $deadline ] || fail "still $pending pending after an hour"
  running "$daemon" || fail "the daemon ended: $(tail -5 "$work/daemon.log")"
  sleep 2
done
t2=$(now); k2=$(daemon_ticks)
indexed=$(index_field indexed)
failed=$(index_field failed)
peak_kib=$(daemon_status VmHWM)
rss_kib=$(daemon_status VmRSS)
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

capture_s=$(between "$t0" "$t1")
index_s=$(between "$t1" "$t2")
total_s=$(between "$t0" "$t2")
printf '\nsearch-daemon-cpu: %s documents, %s MB of text, in %s (%s)\n' "$written" \
  "$(echo "scale=1; $bytes / 1000000" | bc -l)" "$tree" "$(stat -f -c %T "$work")"
printf '%-34s %9s %9s %12s\n' "phase" "wall_s" "cpu_s" "cpu_%_core"
printf '%-34s %9s %9s %12s\n' "write + capture (to settle)" "$capture_s" \
  "$(echo "scale=2; ($k1 - $k0) / $ticks_per_second" | bc -l)" "$(percent_of_core $((k1 - k0)) "$capture_s")"
printf '%-34s %9s %9s %12s\n' "indexing ($pending_at_settle pending at settle)" "$index_s" \
  "$(echo "scale=2; ($k2 - $k1) / $ticks_per_second" | bc -l)" "$(percent_of_core $((k2 - k1)) "$index_s")"
printf '%-34s %9s %9s %12s\n' "both" "$total_s" \
  "$(echo "scale=2; ($k2 - $k0) / $ticks_per_second" | bc -l)" "$(percent_of_core $((k2 - k0)) "$total_s")"
printf 'indexing rate after settle: %s texts/s\n' "$(echo "scale=1; $pending_at_settle / $index_s" | bc -l)"
printf 'indexed %s, failed %s; daemon peak RSS (VmHWM) %s MiB, RSS at the end %s MiB\n' "$indexed" "$failed" \
  "$(echo "scale=1; $peak_kib / 1024" | bc -l)" "$(echo "scale=1; $rss_kib / 1024" | bc -l)"
printf 'load average before %s, after %s\n' "$load_before" "$load_after"
[ "$indexed" = "$documents" ] || fail "indexed $indexed of $documents documents"
