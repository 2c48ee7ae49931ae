#!/bin/sh
# Typed-task parsing against chrono-node, side by side in one run: builds the
# Release benchmark, installs chrono-node from npm into a temporary folder,
# times both on bench/data/typed-tasks.txt and prints medians and ratios.
#   bench/task-parse.sh            (set QUIBLY_SIMDJSON_SOURCE and BUILD_DIR as for any build)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-bench}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUIBLY_BENCH=ON \
  ${QUIBLY_SIMDJSON_SOURCE:+-DQUIBLY_SIMDJSON_SOURCE="$QUIBLY_SIMDJSON_SOURCE"} >/dev/null
cmake --build "$build" -j2 --target TaskParseBench >/dev/null
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
npm install --prefix "$tmp" --no-audit --no-fund --silent chrono-node@2 >/dev/null
export TZ=Europe/London
"$build/bench/TaskParseBench" --benchmark_min_time=0.05 --benchmark_format=json >"$tmp/quibly.json"
node "$root/bench/TaskParseVsChrono.mjs" "$tmp/node_modules" "$root/bench/data/typed-tasks.txt" "$tmp/quibly.json"
