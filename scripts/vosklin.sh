#!/usr/bin/env bash
# Builds Vosklin when anything is missing or stale, then runs it.
# With no arguments it shows the version and the state of the store.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
VOSKLIN_TARGETS=vosklin bash "$root/scripts/build.sh" Release >&2
binary="$root/build/release/vosklin"
if [ $# -eq 0 ]; then
  "$binary" --version
  exec "$binary" status
fi
exec "$binary" "$@"
