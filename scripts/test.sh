#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test:
#   1. the format check (clang-format, as .clang-format says);
#   2. g++: unit, end-to-end and fuzz-corpus tests, the full 110-second hook wait included;
#   3. clang with ASan + UBSan: each libFuzzer target for a bounded time, then every
#      test but the long wait again under the sanitizers.
# QUIBLY_FUZZ_SECONDS sets the time per fuzz target (default 30).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)

echo "== Format"
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror

echo "== g++ build and tests"
bash scripts/build.sh gcc
ctest --test-dir build/gcc -j "$jobs" --output-on-failure

echo "== clang build with AddressSanitizer and UndefinedBehaviorSanitizer"
bash scripts/build.sh asan
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

echo "== Fuzzing, ${QUIBLY_FUZZ_SECONDS:-30} s a target"
for target in build/asan/fuzz/*Fuzz; do
  name=$(basename "$target")
  work=build/asan/fuzz-work/$name
  mkdir -p "$work"
  if ! "$target" -max_total_time="${QUIBLY_FUZZ_SECONDS:-30}" -timeout=10 -rss_limit_mb=4096 \
       -artifact_prefix="$work/" -print_final_stats=1 "$work" "fuzz/corpus/$name" >"$work.log" 2>&1; then
    tail -n 40 "$work.log" >&2
    echo "$name found a failing input; it is kept in $work/." >&2
    exit 1
  fi
  echo "$name: $(grep -m1 -o 'stat::number_of_executed_units: [0-9]*' "$work.log" | grep -o '[0-9]*$') inputs, no failure"
done

echo "== Tests under the sanitizers"
ctest --test-dir build/asan -j "$jobs" --output-on-failure -LE slow
