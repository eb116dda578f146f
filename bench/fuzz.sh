#!/usr/bin/env bash
# Builds the libFuzzer targets of bench/fuzz with clang into build/fuzz and runs
# each for SECONDS (default 600), one after the other.
#   bench/fuzz.sh [SECONDS] [TARGET...]
# TARGET is a file name of bench/fuzz without "Fuzzer.cpp" (RestoreJournal,
# TextDiff, ...) or the executable's name; without any, every target runs.
# Each target's corpus is build/fuzz/corpus/<target>, seeded from
# bench/fuzz/seeds/<target>/; what a run finds (crash-*, leak-*, timeout-*,
# oom-*) goes to build/fuzz/findings/<target>/ and its log to
# build/fuzz/logs/<target>.log. The exit status is 1 when anything was found.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds="${1:-600}"
shift || true
case "$seconds" in
  '' | *[!0-9]*) echo "fuzz.sh: SECONDS must be a whole number, not '$seconds'" >&2; exit 2 ;;
esac

bash scripts/install-dependencies.sh
need=()
command -v clang++ >/dev/null || need+=(clang)
compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null || need+=(libclang-rt-dev)
if [ ${#need[@]} -gt 0 ]; then
  echo "Installing: ${need[*]}" >&2
  sudo_cmd=()
  if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
  "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

build=build/fuzz
if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOSKLIN_FUZZ=ON \
    -DVOSKLIN_TESTS=OFF -DVOSKLIN_BENCHMARKS=OFF >/dev/null
fi

all=()
for source in bench/fuzz/*Fuzzer.cpp; do
  name=$(basename "$source" .cpp)
  all+=("${name%Fuzzer}")
done
targets=()
for wanted in "${@:-${all[@]}}"; do
  wanted="${wanted%Fuzzer}"
  if [ ! -f "bench/fuzz/${wanted}Fuzzer.cpp" ]; then
    echo "fuzz.sh: no target '$wanted' (there are: ${all[*]})" >&2
    exit 2
  fi
  targets+=("$wanted")
done

build_targets=()
for target in "${targets[@]}"; do build_targets+=(--target "${target}Fuzzer"); done
cmake --build "$build" --parallel "$(nproc)" "${build_targets[@]}"

# Sanitizer reports end the run; leaks are reported too (libFuzzer's -detect_leaks).
export ASAN_OPTIONS="${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

rows=()
found_any=0
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  findings="$build/findings/$target"
  log="$build/logs/$target.log"
  mkdir -p "$corpus" "$findings" "$(dirname "$log")"
  if [ -d "bench/fuzz/seeds/$target" ]; then cp -n "bench/fuzz/seeds/$target"/* "$corpus"/ 2>/dev/null || true; fi
  before=$(find "$findings" -type f | wc -l)
  echo "== $target: ${seconds}s, corpus $corpus" >&2
  # A target names its dictionary of tokens in its source, "libFuzzer dictionary: FILE".
  dict=$(grep -o 'libFuzzer dictionary: [^ ]*' "bench/fuzz/${target}Fuzzer.cpp" | cut -d' ' -f3 || true)
  options=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$root/$findings/")
  if [ -n "$dict" ]; then options+=(-dict="bench/fuzz/$dict"); fi
  # A finding stops libFuzzer with a non-zero status; the summary below says what it was.
  "$build/bench/fuzz/${target}Fuzzer" "$corpus" "${options[@]}" >"$log" 2>&1 || true
  runs=$(grep -o '^stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1 || true)
  rate=$(grep -o '^stat::average_exec_per_sec: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1 || true)
  if [ -z "$runs" ]; then  # a crash ends the run before the final stats: take the last progress line
    runs=$(grep -o '^#[0-9]*' "$log" | tail -1 | tr -d '#' || true)
    rate=$(grep -o 'exec/s: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*$' || true)
  fi
  after=$(find "$findings" -type f | wc -l)
  crashes=$((after - before))
  [ "$crashes" -gt 0 ] && found_any=1
  echo "   executions ${runs:-?}, exec/s ${rate:-?}, findings $crashes (log $log)" >&2
  if [ "$crashes" -gt 0 ]; then
    grep -m1 -E 'ERROR: |runtime error:|fuzz target failure:' "$log" | sed 's/^/   /' >&2 || true
    find "$findings" -type f -printf '%T@ %p\n' | sort -n | tail -n "$crashes" | cut -d' ' -f2- | sed 's/^/   /' >&2
  fi
  rows+=("$(printf '%-20s %14s %10s %9s' "$target" "${runs:-?}" "${rate:-?}" "$crashes")")
done

echo
printf '%-20s %14s %10s %9s\n' target executions exec/s findings
for row in "${rows[@]}"; do echo "$row"; done
echo "(${seconds}s per target; findings in $build/findings/<target>/, reproduce with $build/bench/fuzz/<Target>Fuzzer FILE)"
exit "$found_any"
