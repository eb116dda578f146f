#!/usr/bin/env bash
# The window with a year of 100,000 versions and a 100,000-file folder, in headless chromium:
# builds the Release binary and the catalog writer, then runs timeline-bench.mjs, which prints
# one table with each figure beside its goal. By hand, not in CI: a run takes a few minutes.
#   bench/window/timeline-bench.sh            (VERSIONS=... FILES=... for other sizes)
set -euo pipefail
cd "$(dirname "$0")/../.."
VOSKLIN_TARGETS="vosklin window_bench_tool" bash scripts/build.sh Release >/dev/null
export PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1
if ! cmp -s tests/browser/package-lock.json tests/browser/node_modules/.vosklin-lock; then
  (cd tests/browser && npm ci --no-audit --no-fund --loglevel=error)
  cp tests/browser/package-lock.json tests/browser/node_modules/.vosklin-lock
fi
VOSKLIN_BINARY="$PWD/build/release/vosklin" VOSKLIN_BENCH_TOOL="$PWD/build/release/bench/window_bench_tool" \
  exec node bench/window/timeline-bench.mjs
