#!/bin/sh
# Parse and triage 10,000 generated .eml files with Quibly, and parse the same
# files with Python's email package and with mailparser from npm, in one run.
# Prints medians of CPU time, messages/s, MB/s and how many times faster Quibly
# is. CPU time rather than wall time keeps a busy machine from skewing the result.
#
#   bench/mail_bench.sh [BUILD_DIR] [COUNT]
#
# BUILD_DIR is a Release build with -DQUIBLY_BENCH=ON (default: build-bench,
# configured and built here when it has no MailBench yet). mailparser is
# installed into a temporary folder that is removed afterwards.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
build=${1:-$root/build-bench}
count=${2:-10000}
runs=5

if [ ! -x "$build/bench/MailBench" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUIBLY_BENCH=ON >/dev/null
  cmake --build "$build" -j2 --target MailBench >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
python3 "$here/make_mail_corpus.py" "$work/corpus" "$count"

results="$work/results.jsonl"
QUIBLY_MAIL_CORPUS="$work/corpus" "$build/bench/MailBench" --benchmark_repetitions=$runs \
  --benchmark_report_aggregates_only=true --benchmark_format=json >"$work/ours.json"
python3 "$here/mail_baseline.py" "$work/corpus" "$runs" >>"$results"
# The newest mailparser first; when the registry lacks one of its dependencies,
# the 3.7 line, which needs fewer.
installed=""
if command -v npm >/dev/null && command -v node >/dev/null; then
  for wanted in mailparser mailparser@3.7; do
    if npm install --prefix "$work/npm" --no-audit --no-fund --silent "$wanted" >/dev/null 2>&1; then
      installed=$wanted
      break
    fi
  done
fi
if [ -n "$installed" ]; then
  MAILPARSER_DIR="$work/npm" node "$here/mail_baseline.cjs" "$work/corpus" "$runs" >>"$results"
else
  echo "mailparser could not be installed from npm; its row is left out." >&2
fi

python3 - "$work/ours.json" "$results" <<'PY'
import json, sys
ours = json.load(open(sys.argv[1]))
rows = []
for b in ours["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    base = b["run_name"].split("/")[0]
    name = {"BM_EmlParse": "quibly Eml::message", "BM_EmlParseAndTriage": "quibly parse + triage"}[base]
    seconds = b["cpu_time"] / 1000.0  # CPU time, reported in milliseconds
    rows.append((name, seconds, b["items_per_second"], b["bytes_per_second"]))
messages = None
for line in open(sys.argv[2]):
    r = json.loads(line)
    messages = r["messages"]
    rows.append((r["name"], r["median_s"], r["messages"] / r["median_s"], r["bytes"] / r["median_s"]))
ours_triage = [r for r in rows if r[0] == "quibly parse + triage"][0]
print(f"{messages} messages, medians of 5 runs of CPU time, one thread")
print(f"{'':32} {'median s':>9} {'messages/s':>11} {'MB/s':>8} {'parse + triage is':>18}")
for name, seconds, per_s, bytes_s in rows:
    ratio = "" if name.startswith("quibly") else f"{ours_triage[2] / per_s:.1f}x faster"
    print(f"{name:32} {seconds:9.3f} {per_s:11.0f} {bytes_s / 1e6:8.1f} {ratio:>18}")
PY
