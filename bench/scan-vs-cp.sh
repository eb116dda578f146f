#!/usr/bin/env bash
# Baseline capture of a generated tree with `vosklin scan`, against the same
# tree put through `cp -a` and then `sha256sum` over the copy, in one run, on
# the machine's own file system (no reflinks on ext4) and, when this machine
# may mount a loop device, on a reflink XFS image (`cp -a --reflink=always`).
# Also times a second scan of the unchanged tree.
#
#   bench/scan-vs-cp.sh [FILES=10000] [TOTAL_MIB=1024]
#
# Vosklin makes its versions durable (one syncfs per batch of 200) before
# recording them; cp does not sync. To compare like with like, the reference
# is timed both as it is and followed by one `sync -f`; both are printed.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
files="${1:-10000}"
mib="${2:-1024}"
VOSKLIN_TARGETS="vosklin make_tree" bash "$root/scripts/build.sh" Release >/dev/null
vosklin="$root/build/release/vosklin"
make_tree="$root/build/release/bench/make_tree"

now() { date +%s.%N; }
elapsed() { echo "$2 - $1" | bc -l; }
ratio() { echo "scale=2; $1 / $2" | bc -l; }
rate() { echo "scale=0; $1 / $2" | bc -l; }

measure() {  # $1 = work directory on the file system under test, $2 = label, $3 = cp flags
  local work="$1" label="$2" cpflags="$3"
  rm -rf "$work/tree" "$work/copy" "$work/home"
  "$make_tree" "$work/tree" "$files" "$mib"
  sync
  local bytes; bytes=$(du -sb "$work/tree" | cut -f1)

  local t0 t1 t2 ref refsync
  t0=$(now)
  cp -a $cpflags "$work/tree" "$work/copy"
  find "$work/copy" -type f -print0 | xargs -0 -P1 sha256sum >/dev/null
  t1=$(now)
  sync -f "$work/copy"
  t2=$(now)
  ref=$(elapsed "$t0" "$t1"); refsync=$(elapsed "$t0" "$t2")
  rm -rf "$work/copy"; sync

  "$vosklin" --home "$work/home" folder add "$work/tree" >/dev/null
  t0=$(now)
  "$vosklin" --home "$work/home" scan "$work/tree" >/dev/null
  t1=$(now)
  "$vosklin" --home "$work/home" scan "$work/tree" >/dev/null
  t2=$(now)
  local scan again
  scan=$(elapsed "$t0" "$t1"); again=$(elapsed "$t1" "$t2")
  local versions; versions=$("$vosklin" --home "$work/home" status --json | grep '"versions"' | head -1 | tr -dc 0-9)

  printf '\n%s: %s files, %s MB, %s versions recorded\n' "$label" "$files" "$((bytes / 1000000))" "$versions"
  printf '  %-34s %8.2f s  %7s files/s  %5s MB/s\n' "cp -a $cpflags + sha256sum" "$ref" "$(rate "$files" "$ref")" "$(rate "$((bytes / 1000000))" "$ref")"
  printf '  %-34s %8.2f s  %7s files/s  %5s MB/s\n' "  the same, then sync" "$refsync" "$(rate "$files" "$refsync")" "$(rate "$((bytes / 1000000))" "$refsync")"
  printf '  %-34s %8.2f s  %7s files/s  %5s MB/s\n' "vosklin scan (baseline)" "$scan" "$(rate "$files" "$scan")" "$(rate "$((bytes / 1000000))" "$scan")"
  printf '  ratio vosklin / reference: %s (against the synced reference: %s; goal: at most 1.3)\n' "$(ratio "$scan" "$ref")" "$(ratio "$scan" "$refsync")"
  printf '  second scan of the unchanged tree: %.2f s (goal: under 1 s)\n' "$again"
  rm -rf "$work/tree" "$work/home"
}

command -v bc >/dev/null || apt-get install -y -qq bc >/dev/null
ext4=$(mktemp -d /var/tmp/vosklin-bench-XXXXXX)
trap 'rm -rf "$ext4"' EXIT
measure "$ext4" "$(stat -f -c %T "$ext4") ($(df --output=source "$ext4" | tail -1))" ""

if [ "$(id -u)" -eq 0 ] && command -v mkfs.xfs >/dev/null; then
  xfs=$(mktemp -d /var/tmp/vosklin-xfs-XXXXXX)
  trap 'umount "$xfs/mnt" 2>/dev/null || true; rm -rf "$ext4" "$xfs"' EXIT
  mkdir "$xfs/mnt"
  truncate -s $((mib * 3 + 1024))M "$xfs/image"
  mkfs.xfs -q -m reflink=1 "$xfs/image"
  if mount -o loop "$xfs/image" "$xfs/mnt"; then
    measure "$xfs/mnt" "xfs with reflink (loop image)" "--reflink=always"
    umount "$xfs/mnt"
  else
    echo "skipped XFS: this machine does not allow a loop mount"
  fi
else
  echo "skipped XFS: needs root and mkfs.xfs"
fi
