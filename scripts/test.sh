#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh RelWithDebInfo -DVOSKLIN_WERROR=ON
cd build/relwithdebinfo
ctest --output-on-failure --parallel "$(nproc)" --timeout 900 "$@"
