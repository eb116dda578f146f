#!/usr/bin/env bash
# Builds the benchmarks in Release and runs the catalog and digest benchmarks.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build/release
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
# Only the benchmark targets: a half-written test elsewhere must not stop them.
cmake --build "$dir" --target catalog_bench digest_bench
echo
echo "== catalog_bench"
"$dir/bench/catalog_bench"
echo
echo "== digest_bench"
"$dir/bench/digest_bench"
