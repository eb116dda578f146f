#!/usr/bin/env bash
# Configures (once) and builds Vosklin into build/<type>.
#   scripts/build.sh [Release|Debug|RelWithDebInfo] [cmake -D options...]
# With VOSKLIN_TARGETS="vosklin ..." only those targets are built.
set -euo pipefail
cd "$(dirname "$0")/.."
type="${1:-Release}"
shift || true
bash scripts/install-dependencies.sh
dir="build/$(echo "$type" | tr '[:upper:]' '[:lower:]')"
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "$@" >/dev/null
elif [ $# -gt 0 ]; then
  cmake "$dir" "$@" >/dev/null
fi
targets=()
for target in ${VOSKLIN_TARGETS:-}; do targets+=(--target "$target"); done
cmake --build "$dir" --parallel "$(nproc)" "${targets[@]}"
