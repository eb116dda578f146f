#!/usr/bin/env bash
# Live recording with `vosklin run`, in one run, printed as one table:
#  - watch set-up for trees of 10,000 and 100,000 directories: time from the
#    daemon's start to daemon.json (its watches are in place) and to
#    `vosklin settle` returning (the start-up crawl is done too), and its
#    VmRSS / VmHWM after that;
#  - CPU time of the idle daemon over the 100,000-directory tree for 60 s;
#  - delay from a file's close to its version, less the merge window, over
#    1,000 saves with the merge window set to 1 s.
# Goals are printed beside the figures, not enforced.
#
#   bench/live-bench.sh [FILES_PER_DIR=0]
#
# With 0 the trees are empty directories, so the set-up is the watches plus
# the crawl's walk; with 1 every directory also holds one tiny file, which the
# start-up crawl keeps as a baseline version (far slower: that is capture, not
# watching). When fs.inotify.max_user_watches leaves too little room for the
# larger tree, it is raised for the run (needs root) and put back at the end.
# Every daemon gets a fresh --home; daemons are stopped with SIGTERM and the
# temporary trees removed on any exit, Ctrl-C included.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
files_per_dir="${1:-0}"
saves=1000
save_gap_ms=100   # mean gap: about five saves per 0.5 s tick, each its own version
merge_window=1
idle_seconds=60

say() { echo "$*" >&2; }

say "== building (Release)"
VOSKLIN_TARGETS="vosklin live_bench_tool" bash "$root/scripts/build.sh" Release >/dev/null
vosklin="$root/build/release/vosklin"
tool="$root/build/release/bench/live_bench_tool"
clock_ticks=$(getconf CLK_TCK)

work=$(mktemp -d /var/tmp/vosklin-live-XXXXXX)
daemon=""          # pid of the daemon now running, if any
daemon_log=""
child=""          # a long step run by `waited`
restore_limit=""   # the watch limit to put back, once raised
limit_note="fs.inotify.max_user_watches left as it was"

running() {  # a child not yet reaped is a zombie: kill -0 would still succeed
  local state
  state=$(ps -o stat= -p "$1" 2>/dev/null) || return 1
  [[ $state != Z* ]]
}

stop_daemon() {
  [ -n "$daemon" ] || return 0
  kill -TERM "$daemon" 2>/dev/null || true
  # It captures what has settled and writes a checkpoint before it ends.
  for _ in $(seq 600); do running "$daemon" || break; sleep 0.1; done
  if running "$daemon"; then
    say "the daemon (pid $daemon) did not stop within 60 s of SIGTERM; killing it"
    kill -KILL "$daemon" 2>/dev/null || true
  fi
  wait "$daemon" 2>/dev/null || true
  daemon=""
}

put_limit_back() {
  [ -n "$restore_limit" ] || return 0
  sysctl -q -w fs.inotify.max_user_watches="$restore_limit"
  limit_note="$limit_note, restored to $restore_limit afterwards"
  say "restored fs.inotify.max_user_watches to $restore_limit"
  restore_limit=""
}

# Runs a long step in the background and waits for it: a trapped signal
# interrupts `wait` at once, where a foreground step would delay the trap
# until it ended.
waited() {
  "$@" &
  child=$!
  local status=0
  wait "$child" || status=$?
  child=""
  return "$status"
}

cleanup() {
  if [ -n "$child" ]; then
    kill -TERM "$child" 2>/dev/null || true
    wait "$child" 2>/dev/null || true
  fi
  stop_daemon
  put_limit_back
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
  say "live-bench: $*"
  if [ -n "$daemon_log" ] && [ -f "$daemon_log" ]; then
    say "-- the daemon's log, last lines:"
    tail -n 20 "$daemon_log" >&2
  fi
  exit 1
}

seconds_between() { printf '%.3f' "$(echo "$2 - $1" | bc -l)"; }

# Watches held by this user's processes: the limit counts them all.
user_watches() {
  local uid total=0 count process
  uid=$(id -u)
  for process in /proc/[0-9]*; do
    [ "$(stat -c %u "$process" 2>/dev/null)" = "$uid" ] || continue
    count=$(cat "$process"/fdinfo/* 2>/dev/null | grep -c '^inotify wd:' || true)
    total=$((total + count))
  done
  echo "$total"
}

ensure_watch_limit() {  # $1 = watches the next daemon needs
  local need=$1 limit used
  limit=$(cat /proc/sys/fs/inotify/max_user_watches)
  used=$(user_watches)
  say "fs.inotify.max_user_watches = $limit; $used in use by uid $(id -u); the next daemon needs $need"
  # Some headroom for the rest of the machine while the run lasts.
  if [ $((used + need + 1000)) -le "$limit" ]; then return 0; fi
  [ "$(id -u)" -eq 0 ] || fail "the watch limit $limit is too low for $need more watches and raising it needs root"
  local raised=$(( (used + need) * 5 / 4 ))
  [ -n "$restore_limit" ] || restore_limit=$limit
  sysctl -q -w fs.inotify.max_user_watches="$raised"
  limit_note="fs.inotify.max_user_watches raised from $limit to $raised ($used in use, $need needed)"
  say "raised fs.inotify.max_user_watches from $limit to $raised for the run"
}

# Starts `vosklin run` for $1 (home) and waits for the start-up to finish.
# Sets: published_s (start to daemon.json), settled_s (start to settle returning).
start_daemon() {
  local home=$1 started published settled
  daemon_log="$home.log"
  started=$EPOCHREALTIME
  "$vosklin" --home "$home" run >"$daemon_log" 2>&1 &
  daemon=$!
  published=$("$tool" await "$home/daemon.json" "$daemon" 1800) || fail "the daemon did not publish daemon.json"
  "$vosklin" --home "$home" settle --timeout 1800 || fail "settle did not return success"
  settled=$EPOCHREALTIME
  published_s=$(seconds_between "$started" "$(echo "scale=6; $published / 1000000" | bc -l)")
  settled_s=$(seconds_between "$started" "$settled")
}

daemon_status() { awk -v key="$2" '$1 == key":" {print $2}' "/proc/$1/status"; }  # in kB
daemon_watches() { cat /proc/"$1"/fdinfo/* 2>/dev/null | grep -c '^inotify wd:' || true; }
# utime + stime of every thread; the part after ") " starts at field 3, the state.
daemon_cpu_ticks() { sed 's/.*) //' "/proc/$1/stat" | awk '{print $12 + $13}'; }
mib() { printf '%.1f' "$(echo "$1 / 1024" | bc -l)"; }

declare -A result
run_started=$EPOCHREALTIME
# Other work on the machine shows in every figure here; the table says how busy it was.
load_before=$(cut -d' ' -f1-3 /proc/loadavg)

# --- 1 and 2: watch set-up, memory, idle CPU -------------------------------
for directories in 10000 100000; do
  run="$work/dirs-$directories"
  mkdir -p "$run/tree"
  say "== $directories directories: making the tree"
  waited "$tool" dirs "$run/tree" "$directories" "$files_per_dir"
  ensure_watch_limit $((directories + 1))
  "$vosklin" --home "$run/home" folder add "$run/tree" >/dev/null
  say "== $directories directories: starting the daemon"
  start_daemon "$run/home"
  result[published,$directories]=$published_s
  result[settled,$directories]=$settled_s
  result[rss,$directories]=$(mib "$(daemon_status "$daemon" VmRSS)")
  result[hwm,$directories]=$(mib "$(daemon_status "$daemon" VmHWM)")
  result[watches,$directories]=$(daemon_watches "$daemon")
  if [ "${result[watches,$directories]}" -lt $((directories + 1)) ]; then
    say "warning: the daemon holds ${result[watches,$directories]} watches for $((directories + 1)) directories"
    grep -i 'limit' "$daemon_log" >&2 || true
  fi
  if [ "$directories" -eq 100000 ]; then
    say "== $directories directories: idle for $idle_seconds s"
    before=$(daemon_cpu_ticks "$daemon"); from=$EPOCHREALTIME
    waited sleep "$idle_seconds"
    after=$(daemon_cpu_ticks "$daemon"); to=$EPOCHREALTIME
    result[idle_ticks]=$((after - before))
    result[idle_wall]=$(seconds_between "$from" "$to")
    result[idle_percent]=$(printf '%.2f' "$(echo "100 * ${result[idle_ticks]} / $clock_ticks / ${result[idle_wall]}" | bc -l)")
  fi
  stop_daemon
  put_limit_back
  say "== $directories directories: removing the tree"
  waited rm -rf "$run"
done

# --- 3: close-to-version latency --------------------------------------------
run="$work/saves"
mkdir -p "$run/home" "$run/tree"
for part in 0 1 2 3 4 5 6 7 8 9; do mkdir "$run/tree/part-$part"; done
echo "{ \"vosklin.mergeWindowSeconds\": $merge_window }" >"$run/home/settings.json"
"$vosklin" --home "$run/home" folder add "$run/tree" >/dev/null
say "== latency: starting the daemon (merge window $merge_window s)"
start_daemon "$run/home"
say "== latency: $saves saves, one every ~$save_gap_ms ms"
waited "$tool" saves "$run/tree" "$saves" "$save_gap_ms" "$run/closes.tsv" || fail "the saves failed"
"$vosklin" --home "$run/home" settle --timeout 600 || fail "settle after the saves did not return success"
say "== latency: reading $saves version lists"
waited "$tool" latency "$run/closes.tsv" "$vosklin" "$run/home" "$merge_window" >"$run/latency.txt" || true
read -r lat_count lat_missing lat_extra lat_median lat_p90 lat_p99 lat_max <"$run/latency.txt" || true
if [ -z "${lat_count:-}" ] || [ "$lat_count" -eq 0 ]; then
  fail "no closes were recorded, or their versions could not be read"
fi
capture_errors=$(grep -c 'Capture failed' "$daemon_log" || true)
stop_daemon
rm -rf "$run"
total_s=$(seconds_between "$run_started" "$EPOCHREALTIME")
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

# --- the table -----------------------------------------------------------------
if [ "$files_per_dir" -eq 0 ]; then tree_kind="empty directories"; else tree_kind="$files_per_dir tiny file(s) per directory"; fi
echo
echo "Live recording: vosklin $("$vosklin" --version | awk '{print $2}'), $(nproc) cores, $(df --output=fstype "$work" | tail -1) on $(df --output=source "$work" | tail -1), kernel $(uname -r)"
echo "Trees: $tree_kind, ten subdirectories per directory; $limit_note"
echo
printf '%-46s %14s %14s   %s\n' "" "10,000 dirs" "100,000 dirs" "goal"
printf '%-46s %14s %14s\n' "inotify watches held" "${result[watches,10000]}" "${result[watches,100000]}"
printf '%-46s %12s s %12s s\n' "start -> daemon.json (watches in place)" "${result[published,10000]}" "${result[published,100000]}"
printf '%-46s %12s s %12s s\n' "start -> settle returned (start-up crawl done)" "${result[settled,10000]}" "${result[settled,100000]}"
printf '%-46s %10s MiB %10s MiB\n' "VmRSS after settle" "${result[rss,10000]}" "${result[rss,100000]}"
printf '%-46s %10s MiB %10s MiB\n' "VmHWM after settle" "${result[hwm,10000]}" "${result[hwm,100000]}"
printf '%-46s %14s %12s %%   under 1 %%\n' "idle CPU, $idle_seconds s (% of one core)" "-" "${result[idle_percent]}"
printf '%-46s %14s %14s\n' "  (utime+stime in 1/$clock_ticks s ticks, over wall s)" "" "${result[idle_ticks]} / ${result[idle_wall]}"
echo
echo "Close -> capturedAt, less the ${merge_window} s merge window ($saves new files, one every ~$save_gap_ms ms):"
printf '  %-20s %10s s   under 0.6 s\n' "median" "$lat_median"
printf '  %-20s %10s s   under 0.6 s\n' "99th percentile" "$lat_p99"
printf '  %-20s %10s s\n' "90th percentile" "$lat_p90"
printf '  %-20s %10s s\n' "maximum" "$lat_max"
printf '  %-20s %10s of %s (missing %s, with more than one version %s, capture failures logged %s)\n' \
  "saves measured" "$((lat_count - lat_missing))" "$saves" "$lat_missing" "$lat_extra" "$capture_errors"
echo
echo "Whole run: $total_s s; load average (1, 5, 15 min) before: $load_before, after: $load_after"
