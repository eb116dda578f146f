#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the whole test suite: the C++ tests
# (ctest), then the window's own logic and the window in a real browser (Node's test runner).
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
bash scripts/build.sh RelWithDebInfo -DVOSKLIN_WERROR=ON
(cd build/relwithdebinfo && ctest --output-on-failure --parallel "$(nproc)" --timeout 900 "$@")

# The browser tests' packages, fetched again only when the lockfile changed; playwright-core
# drives Debian's chromium and never downloads a browser of its own.
export PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1
browser="$root/tests/browser"
if ! cmp -s "$browser/package-lock.json" "$browser/node_modules/.vosklin-lock"; then
  (cd "$browser" && npm ci --no-audit --no-fund --loglevel=error)
  cp "$browser/package-lock.json" "$browser/node_modules/.vosklin-lock"
fi

if [ -n "$(find ui/test -type f \( -name '*.js' -o -name '*.mjs' \) 2>/dev/null | head -1)" ]; then
  node --test ui/test/
fi

# One chromium at a time (two cores); each test sets its own timeout, this caps a whole file.
VOSKLIN_BINARY="$root/build/relwithdebinfo/vosklin" \
  node --test --test-concurrency=1 --test-timeout=900000 tests/browser/
