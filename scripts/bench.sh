#!/usr/bin/env bash
# Builds the release flavour and runs every benchmark. Each benchmark program
# measures its candidate and its baseline side by side in the same run and
# reports medians (and 99th percentiles where a tail matters).
# Usage: scripts/bench.sh [NAME...]   (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
bash scripts/build.sh release
names=("$@")
((${#names[@]})) || names=(ApproveBench JSONValueBench VobboStoreBench transcript task mail)
for name in "${names[@]}"; do
  echo "== $name"
  case "$name" in
    transcript) bash bench/transcript_vs_ccusage.sh build/release ;;
    task) BUILD_DIR=build/release sh bench/task-parse.sh ;;
    mail) bash bench/mail_bench.sh build/release ;;
    VobboStoreBench) "build/release/bench/$name" --benchmark_repetitions=9 --benchmark_report_aggregates_only=true \
                       --benchmark_enable_random_interleaving=true ;;
    *) "build/release/bench/$name" --benchmark_counters_tabular=true ;;
  esac
done
