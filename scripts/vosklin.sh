#!/usr/bin/env bash
# Builds Vosklin when anything is missing or stale, then runs it.
#   scripts/vosklin.sh FOLDER     start recording FOLDER live (the daemon, in the foreground; Ctrl-C stops it)
#   scripts/vosklin.sh ARGS...    any vosklin command, e.g. status, versions PATH, folder list
#   scripts/vosklin.sh            the version and the state of the store
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
VOSKLIN_TARGETS=vosklin bash "$root/scripts/build.sh" Release >&2
binary="$root/build/release/vosklin"
if [ $# -eq 0 ]; then
  "$binary" --version
  exec "$binary" status
fi
if [ $# -eq 1 ] && [ -d "$1" ]; then
  echo "Recording $1 with $binary (history: '$binary versions PATH', state: '$binary status')" >&2
  exec "$binary" run "$1"
fi
exec "$binary" "$@"
