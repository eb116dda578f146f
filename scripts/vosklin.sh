#!/usr/bin/env bash
# Builds Vosklin when anything is missing or stale, then runs it.
#   scripts/vosklin.sh FOLDER     start recording FOLDER live (the daemon, in the foreground; Ctrl-C stops it)
#                                 and open the window in the browser once it runs
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
  "$binary" run "$1" &
  daemon=$!
  trap 'kill -TERM "$daemon" 2>/dev/null || true' INT TERM
  # The window, once this daemon is up (a 'vosklin ui' before that would start one of its own).
  for _ in $(seq 100); do
    if "$binary" status --json 2>/dev/null | grep -q '"running": true'; then
      # The address goes to the terminal too, for a machine without a desktop to open it.
      "$binary" ui >&2 || echo "The window did not open; '$binary ui' prints its address" >&2
      break
    fi
    kill -0 "$daemon" 2>/dev/null || break
    sleep 0.2
  done
  # Ctrl-C reaches the daemon through the trap (a background job ignores SIGINT); wait for it to finish.
  status=0
  while kill -0 "$daemon" 2>/dev/null; do
    if wait "$daemon"; then status=0; else status=$?; fi
  done
  exit "$status"
fi
exec "$binary" "$@"
