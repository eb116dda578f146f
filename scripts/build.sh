#!/usr/bin/env bash
# Configures (once) and builds Vosklin into build/<type>. Usage: scripts/build.sh [Release|Debug|RelWithDebInfo] [cmake args...]
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
cmake --build "$dir" --parallel "$(nproc)"
