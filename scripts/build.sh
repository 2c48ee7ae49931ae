#!/usr/bin/env bash
# Configures and builds one flavour of the project into build/<flavour>:
#   release  g++, optimised (what the demo and the benchmarks use)
#   gcc      g++ with the tests; the benchmarks are built (not run) so they keep compiling
#   asan     clang with AddressSanitizer + UndefinedBehaviorSanitizer and libFuzzer targets
# Usage: scripts/build.sh FLAVOUR
set -euo pipefail
cd "$(dirname "$0")/.."
flavour=${1:?usage: scripts/build.sh release|gcc|asan}

options=(-G Ninja)
# A compiler cache, when the machine has one, makes rebuilds across flavours and
# checkouts cheap; CI does without.
if command -v ccache >/dev/null; then
  options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
if [ -f .deps/simdjson-3.0.1/singleheader/simdjson.cpp ]; then
  options+=("-DQUIBLY_SIMDJSON_SOURCE=$PWD/.deps/simdjson-3.0.1")
fi
case "$flavour" in
  release) options+=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc -DQUIBLY_BENCH=ON) ;;
  gcc)     options+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc -DQUIBLY_BENCH=ON) ;;
  asan)    options+=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang
                     -DQUIBLY_SANITIZE=ON -DQUIBLY_FUZZ=ON) ;;
  *) echo "Unknown flavour $flavour: use release, gcc or asan." >&2; exit 2 ;;
esac
cmake -S . -B "build/$flavour" "${options[@]}" >/dev/null
cmake --build "build/$flavour" -j "$(nproc)"
