#!/usr/bin/env bash
# Folding a large Claude Code transcript, side by side in one run:
#   - quibly transcript (the whole fold, reading from disk) against ccusage
#     20.0.24 from npm reading the same file (installed into a temporary folder);
#   - the fold against simdjson parsing the same lines and reading one field;
#   - a refresh after one appended line, on a 1 MB and on a 1 GB transcript;
#   - the peak memory of folding a 1 GB transcript.
# Usage: bench/transcript_vs_ccusage.sh [release build folder with QUIBLY_BENCH=ON]
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work" "${TMPDIR:-/tmp}/quibly-transcript-bench"' EXIT

echo "Installing ccusage 20.0.24 into $work/npm"
npm install --silent --no-audit --no-fund --prefix "$work/npm" ccusage@20.0.24 >/dev/null
ccusage="$work/npm/node_modules/.bin/ccusage"

project="$work/claude/projects/-bench"
mkdir -p "$project"
file="$project/session.jsonl"
"$build/bench/TranscriptBench" --generate "$file" 128
mb=$(( $(stat -c %s "$file") / 1048576 ))
echo "Transcript: $file ($mb MB)"

hyperfine --warmup 1 --runs 7 --export-json "$work/runs.json" \
  -n quibly "$build/bin/quibly transcript --agent claude $file > /dev/null" \
  -n ccusage "CLAUDE_CONFIG_DIR=$work/claude $ccusage daily --json --offline > /dev/null"
python3 - "$work/runs.json" "$mb" <<'PY'
import json, sys
runs = {r["command"]: r["median"] for r in json.load(open(sys.argv[1]))["results"]}
mb = float(sys.argv[2])
for name, median in runs.items():
    print(f"{name:8s} median {median*1000:8.1f} ms  {mb/median:8.1f} MB/s")
print(f"quibly is {runs['ccusage']/runs['quibly']:.1f} times as fast as ccusage")
PY

"$build/bench/TranscriptBench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_filter='Fold|Limit|Refresh'

big="$work/big.jsonl"
for _ in 1 2 3 4 5 6 7 8; do cat "$file"; done > "$big"
/usr/bin/time -f "Folding $(( $(stat -c %s "$big") / 1048576 )) MB peaked at %M KB of memory" \
  "$build/bin/quibly" transcript --agent claude "$big" > /dev/null
