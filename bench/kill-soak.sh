#!/usr/bin/env bash
# Random-SIGKILL soak of the daemon under a save storm, K kills (200 unless
# given), then the audit of what it kept; prints one summary line:
#   kill-soak: K kills survived, F files checked, B bytes lost (...)
#
#   bench/kill-soak.sh [KILLS=200] [SEED]
#
# The soak is the reliability test KillSoakTest (tests/support/KillSoak.cpp),
# run with VOSKLIN_SOAK_KILLS=KILLS; CI runs it with 5. It builds `vosklin` and
# `reliability_tests` itself (Release, or VOSKLIN_BUILD_TYPE). Exit status: the test's (0 when
# nothing was lost and the store is sound). The full output is kept in
# build/<type>/kill-soak.log.
set -euo pipefail
cd "$(dirname "$0")/.."
kills="${1:-200}"
seed="${2:-}"
type="${VOSKLIN_BUILD_TYPE:-Release}"
VOSKLIN_TARGETS="vosklin reliability_tests" bash scripts/build.sh "$type" >/dev/null
dir="build/$(echo "$type" | tr "[:upper:]" "[:lower:]")"
log="$dir/kill-soak.log"
status=0
VOSKLIN_SOAK_KILLS="$kills" VOSKLIN_SOAK_SEED="$seed" \
  "$dir/tests/reliability_tests" --gtest_filter='KillSoakTest.*' >"$log" 2>&1 || status=$?
grep '^kill-soak:' "$log" || { echo "kill-soak: no summary; see $log" >&2; status=1; }
[ "$status" -eq 0 ] || echo "kill-soak: FAILED (exit $status); see $log" >&2
exit "$status"
