#!/usr/bin/env bash
# Rewinding a whole folder with `vosklin rewind`, against `rsync -a --delete`
# from a plain copy of the same earlier state, on the same data, in one run: on
# the machine's own file system under /var/tmp (no reflinks on ext4) and, when
# this machine may mount a loop device, on a reflink XFS image.
#
#   bench/rewind-vs-rsync.sh [FILES=10000] [TOTAL_MIB=500]
#
# Per file system: make_tree writes FILES files, `vosklin scan` keeps the
# baseline and the moment it made is noted; `cp -a` (on XFS with
# --reflink=always) keeps the reference copy. Then one file in ten is changed:
# of those, nine in ten are rewritten in place (same length, new random bytes),
# one in twenty is deleted and one in twenty stays as it is while a new file is
# added instead (half of them in a new subfolder). A second scan records that,
# a minute after the baseline so that the two stay separate moments (about a
# minute of each file system's run is spent waiting for it).
# Timed: the plan alone (`rewind --dry-run`) and the whole rewind (`--yes`,
# which plans again); execution is the difference. The folder must then equal
# the reference copy. Then the same changes are made again, with the same
# bytes, and `rsync -a --delete REFERENCE/ FOLDER/` is timed bringing it back.
#
# The rewind makes every file it writes durable (fsync before the swap) and
# keeps versions of what it overwrites and what it wrote; rsync does neither.
# rsync is printed both as it is and followed by one `sync -f`; the goal is
# read against the former. Caches are warm by default (everything was just
# written; the reference copy is read once before rsync, because a reflink copy
# has no cached pages of its own); with DROP_CACHES=1 (root) the page cache is
# dropped before each timed step instead. Goals are printed, not enforced.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
files="${1:-10000}"
mib="${2:-500}"
drop_caches="${DROP_CACHES:-0}"
moment_window=60  # MomentClustering::momentWindow
VOSKLIN_TARGETS="vosklin make_tree" bash "$root/scripts/build.sh" Release >/dev/null
vosklin="$root/build/release/vosklin"
make_tree="$root/build/release/bench/make_tree"

say() { echo "$*" >&2; }
now() { date +%s.%N; }
elapsed() { echo "$2 - $1" | bc -l; }
ratio() { echo "scale=2; $1 / $2" | bc -l; }

# make_tree's layout: file i is project-(i/1000)/part-(i/100%10)/file-i.(docx|txt|png).
path_of() {
  local i=$1 ext
  case $((i % 3)) in 0) ext=docx ;; 1) ext=txt ;; *) ext=png ;; esac
  echo "project-$((i / 1000))/part-$((i / 100 % 10))/file-$i.$ext"
}
rewritten() { (($1 % 10 == 0 && $1 % 100 != 0)); }
deleted() { (($1 % 200 == 0)); }
added_count() { echo $((files / 200)); }
added_path() {  # half beside the old files, half in a folder that did not exist
  if (($1 % 2 == 0)); then echo "project-0/part-0/new-$1.txt"; else echo "added/new-$1.txt"; fi
}

# The new bytes are drawn once, so both passes make exactly the same changes.
draw_changes() {  # $1 = tree, $2 = directory for the new contents
  local tree="$1" out="$2" i k
  mkdir -p "$out"
  for ((i = 0; i < files; i++)); do
    rewritten "$i" || continue
    head -c "$(stat -c %s "$tree/$(path_of "$i")")" /dev/urandom >"$out/rewrite-$i"
  done
  for ((k = 0; k < $(added_count); k++)); do head -c $((4096 + k * 997)) /dev/urandom >"$out/new-$k"; done
}

# In place, as an editor that saves over its file does: same inode, new bytes.
apply_changes() {  # $1 = tree, $2 = directory of the new contents
  local tree="$1" from="$2" i k
  for ((i = 0; i < files; i++)); do
    if deleted "$i"; then rm "$tree/$(path_of "$i")"
    elif rewritten "$i"; then cat "$from/rewrite-$i" >"$tree/$(path_of "$i")"; fi
  done
  mkdir -p "$tree/added"
  for ((k = 0; k < $(added_count); k++)); do cat "$from/new-$k" >"$tree/$(added_path "$k")"; done
}

quiesce() {  # before a timed step: nothing dirty left to write back; cold if asked
  sync
  if [ "$drop_caches" = 1 ]; then echo 3 >/proc/sys/vm/drop_caches; fi
}

# Bytes read by a command and its children: the parent's /proc io counters
# take in those of the children it reaps.
read_bytes_of() {  # $1 = file for the output, $2 = file for the byte count, then the command
  local out="$1" count="$2"; shift 2
  bash -c 'out="$1" count="$2"; shift 2; "$@" >"$out"; grep ^rchar: /proc/$$/io | tr -dc 0-9 >"$count"' _ "$out" "$count" "$@"
}

same_as() {  # $1 = reference, $2 = folder; prints "yes" or "NO (n differences, the first: ...)"
  local out
  out=$(diff -rq --no-dereference "$1" "$2" 2>&1 || true)
  if [ -z "$out" ]; then echo yes
  else echo "NO ($(wc -l <<<"$out") differences, the first: $(head -1 <<<"$out"))"; fi
}

mtimes_differing() {  # files whose size, mode or modification time differ from the reference
  diff <(cd "$1" && find . -type f -printf '%P %s %m %T@\n' | sort) \
       <(cd "$2" && find . -type f -printf '%P %s %m %T@\n' | sort) | grep -c '^>' || true
}

rows=()
notes=()

measure() {  # $1 = work directory on the file system under test, $2 = label, $3 = cp flags
  local work="$1" label="$2" cpflags="$3"
  local tree="$work/tree" ref="$work/reference" home="$work/home" changes="$work/changes"
  rm -rf "$tree" "$ref" "$home" "$changes"
  say "== $label: writing $files files ($mib MiB)"
  "$make_tree" "$tree" "$files" "$mib"
  sync
  "$vosklin" --home "$home" folder add "$tree" >/dev/null
  "$vosklin" --home "$home" scan "$tree" >/dev/null
  local moment
  moment=$("$vosklin" --home "$home" history "$tree" --json | jq -r '.sessions[0].moments[0].at')
  # shellcheck disable=SC2086  # cpflags is empty or one flag
  cp -a $cpflags "$tree" "$ref"

  say "== $label: changing $((files / 10)) files, recording the change"
  draw_changes "$tree" "$changes"
  # Changes less than a minute apart make one moment, and the baseline's
  # instant would then no longer name a moment of its own: the change waits.
  local wait_s; wait_s=$(echo "$(date -d "$moment" +%s.%N) + $moment_window + 1 - $(now)" | bc -l)
  if [ "$(echo "$wait_s > 0" | bc)" = 1 ]; then say "   (waiting ${wait_s%.*} s so the change is a moment of its own)"; sleep "$wait_s"; fi
  apply_changes "$tree" "$changes"
  "$vosklin" --home "$home" scan "$tree" >/dev/null
  if ! "$vosklin" --home "$home" history "$tree" --json | jq -e --arg at "$moment" '[.sessions[].moments[].at] | index($at) != null' >/dev/null; then
    notes+=("$label: the baseline instant $moment is no longer a moment of the history; the rewind takes it as typed")
  fi
  local changed=0 i
  for ((i = 0; i < files; i++)); do if deleted "$i" || rewritten "$i"; then changed=$((changed + 1)); fi; done
  changed=$((changed + $(added_count)))

  say "== $label: rewinding to $moment"
  local t0 t1 t2 t3 plan full
  quiesce
  t0=$(now)
  read_bytes_of "$work/plan.txt" "$work/plan-read" "$vosklin" --home "$home" rewind "$tree" "$moment" --dry-run
  t1=$(now)
  quiesce
  t2=$(now)
  "$vosklin" --home "$home" rewind "$tree" "$moment" --yes >/dev/null
  t3=$(now)
  plan=$(elapsed "$t0" "$t1"); full=$(elapsed "$t2" "$t3")
  # The manifest a finished rewind leaves holds the instant its pre-rewind
  # capture began and the instant it finished: the writing phase, measured
  # inside the process.
  local manifest writing
  manifest=$(find "$home" -name 'rewound-*.json' | head -1)
  writing=$(echo "$(date -d "$(jq -r .finishedAt "$manifest")" +%s.%N) - $(date -d "$(jq -r .beforeRewindAt "$manifest")" +%s.%N)" | bc -l)
  local steps; steps="$(grep -c '^    revert ' "$work/plan.txt" || true) reverted, $(grep -c '^    restore' "$work/plan.txt" || true) restored, $(grep -c '^    remove ' "$work/plan.txt" || true) removed"
  local rewound_ok rewound_meta
  rewound_ok=$(same_as "$ref" "$tree")
  rewound_meta=$(mtimes_differing "$ref" "$tree")

  say "== $label: the same changes again, then rsync"
  apply_changes "$tree" "$changes"
  if [ "$drop_caches" != 1 ]; then find "$ref" -type f -print0 | xargs -0 cat >/dev/null; fi
  quiesce
  t0=$(now)
  rsync -a --delete "$ref/" "$tree/"
  t1=$(now)
  sync -f "$tree"
  t2=$(now)
  local rsync_s rsync_sync; rsync_s=$(elapsed "$t0" "$t1"); rsync_sync=$(elapsed "$t0" "$t2")
  local rsynced_ok; rsynced_ok=$(same_as "$ref" "$tree")

  local exec_s; exec_s=$(elapsed "$plan" "$full")
  rows+=("$(printf '%-26s %6s %7s %7.2f %7.2f %7.2f %7.2f %7.2f %6s %6s' "$label" "$files" "$changed" \
    "$plan" "$exec_s" "$full" "$rsync_s" "$rsync_sync" "$(ratio "$full" "$rsync_s")" "$(ratio "$full" "$rsync_sync")")")
  local catalog_mb; catalog_mb=$(du -sm "$home" --exclude='*/versions' 2>/dev/null | cut -f1 || echo '?')
  notes+=("$label: plan steps: $steps; the plan read $(printf %.1f "$(echo "$(cat "$work/plan-read") / 1000000" | bc -l)") MB (the tree is $(($(du -sb "$ref" | cut -f1) / 1000000)) MB; the home without stored copies $catalog_mb MB)")
  notes+=("$label: of the --yes run's $(printf %.2f "$full") s, $(printf %.2f "$writing") s went from the pre-rewind capture to the manifest; the rest is start-up, two plans (the list shown, then the plan the writes follow) and the checks before writing")
  notes+=("$label: after the rewind the folder equals the reference: $rewound_ok; files whose size, mode or mtime differ from it: $rewound_meta")
  notes+=("$label: after rsync the folder equals the reference: $rsynced_ok")
  rm -rf "$tree" "$ref" "$home" "$changes"
}

command -v bc >/dev/null || apt-get install -y -qq bc >/dev/null
command -v jq >/dev/null || apt-get install -y -qq jq >/dev/null
command -v rsync >/dev/null || apt-get install -y -qq rsync >/dev/null
ext4=$(mktemp -d /var/tmp/vosklin-bench-XXXXXX)
trap 'rm -rf "$ext4"' EXIT
measure "$ext4" "$(stat -f -c %T "$ext4") ($(df --output=source "$ext4" | tail -1))" ""

if [ "$(id -u)" -eq 0 ] && command -v mkfs.xfs >/dev/null; then
  xfs=$(mktemp -d /var/tmp/vosklin-xfs-XXXXXX)
  trap 'umount "$xfs/mnt" 2>/dev/null || true; rm -rf "$ext4" "$xfs"' EXIT
  mkdir "$xfs/mnt"
  truncate -s $((mib * 4 + 1024))M "$xfs/image"
  mkfs.xfs -q -m reflink=1 "$xfs/image"
  if mount -o loop "$xfs/image" "$xfs/mnt"; then
    measure "$xfs/mnt" "xfs, reflink (loop image)" "--reflink=always"
    umount "$xfs/mnt"
  else
    notes+=("skipped XFS: this machine does not allow a loop mount")
  fi
else
  notes+=("skipped XFS: needs root and mkfs.xfs")
fi

echo
if [ "$drop_caches" = 1 ]; then echo "Page cache dropped before each timed step (cold)."
else echo "Caches warm: nothing dropped; the reference copy was read once before rsync."; fi
printf '%-26s %6s %7s %7s %7s %7s %7s %7s %6s %6s\n' "file system" files changed "plan s" "exec s" "total s" \
  "rsync s" "+sync s" ratio "ratio+"
for row in "${rows[@]}"; do echo "$row"; done
echo "exec = total - plan (the --yes run plans again); ratio = rewind total / rsync; ratio+ = against rsync then sync -f"
echo "goal: the rewind faster than rsync on XFS with reflinks (ratio under 1)"
for note in "${notes[@]}"; do echo "- $note"; done
