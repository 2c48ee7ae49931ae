#!/usr/bin/env bash
# The main job, on the sample data bundled under samples/: installs what is
# missing, builds, and shows what Quibly's core does with no coding agent on
# the machine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh >/dev/null
echo "Building (release)..."
bash scripts/build.sh release >/dev/null
bin=$PWD/build/release
quibly=$bin/bin/quibly
hook=$bin/bin/quibly-approve
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

section() { printf '\n\033[1m%s\033[0m\n' "$1"; }

# One approval round trip: the real hook, fed a real agent's event, against
# `quibly approve` on a temporary socket answering with the given policy.
round_trip() {
  local sample=$1 agent=$2 policy=$3 socket=$tmp/approve.sock
  "$quibly" approve --socket "$socket" --json "--$policy-all" >"$tmp/app.log" &
  local app=$!
  for _ in $(seq 100); do [ -S "$socket" ] && break; sleep 0.05; done
  QUIBLY_APPROVE_SOCKET=$socket "$hook" "$agent" <"samples/agents/$sample" >"$tmp/answer"
  # A notice is fire-and-forget: give the app a moment to take it in.
  for _ in $(seq 100); do grep -qE '"event":"(request|notice)"' "$tmp/app.log" && break; sleep 0.02; done
  kill -INT "$app"
  wait "$app"
  echo "· $sample"
  echo "  the app was sent:   $(grep -E '"event":"(request|notice)"' "$tmp/app.log" | sed -E 's/.*"request"://; s/}$//')"
  if grep -q '"event":"notice"' "$tmp/app.log"; then
    echo "  a notice only: this agent's hook cannot carry an answer, so the hook returned at once"
  else
    echo "  the person chose:   $policy"
  fi
  if [ -s "$tmp/answer" ]; then
    echo "  $agent receives:    $(cat "$tmp/answer")"
  else
    echo "  $agent receives:    nothing, and asks in its own way"
  fi
}

section "Approval round trips (quibly-approve against quibly approve on a temporary socket)"
round_trip claude-PermissionRequest-Bash.json claude allow
round_trip claude-PermissionRequest-Bash-from-subagent.json claude deny
round_trip claude-PermissionRequest-AskUserQuestion.json claude defer
round_trip codex-PermissionRequest-Bash.json codex allow
round_trip gemini-Notification-ToolPermission.json gemini allow
start=$(date +%s%N)
QUIBLY_APPROVE_SOCKET=$tmp/nobody.sock "$hook" claude <samples/agents/claude-PermissionRequest-Bash.json
echo "· with Quibly not running, the hook printed nothing and returned in $(( ($(date +%s%N) - start) / 1000000 )) ms"

section "Installing the hook into each agent's settings (in a temporary home folder)"
mkdir -p "$tmp/home/.claude"
echo '{"model": "opus", "permissions": {"allow": ["Bash(ls:*)"]}}' >"$tmp/home/.claude/settings.json"
HOME=$tmp/home "$quibly" hooks install
HOME=$tmp/home "$quibly" hooks
echo "· Claude Code's settings keep what the person had:"
sed 's/^/    /' "$tmp/home/.claude/settings.json"
HOME=$tmp/home "$quibly" hooks remove

section "Live sessions, from the transcripts the agents wrote (samples/transcripts, read as a home folder)"
HOME=$PWD/samples/transcripts "$quibly" sessions --all
echo "· one transcript folded, as scripts see it (quibly transcript FILE):"
"$quibly" transcript "$(find samples/transcripts/.codex -name '*.jsonl' | head -n 1)" | head -n 20

section "Typed tasks (quibly task, with the clock set to Saturday 21 November 2026, 10:00 in London)"
for task in "pay rent every 1st #home !high" "call mom tomorrow at 5pm" "standup every weekday at 9:15 #work" \
            "send the deck by friday 3pm !!" "water plants in 20 minutes"; do
  "$quibly" task --tz Europe/London --now 2026-11-21T10:00 "$task"
  echo
done
echo "· many at once, one JSON line each (first five phrases of bench/data/typed-tasks.txt):"
head -n 5 bench/data/typed-tasks.txt | "$quibly" task --json --tz Europe/London --now 2026-11-21T10:00

section "The local store (quibly data, on a data folder made for this demo)"
export VOBBO_DATA_DIR=$tmp/data
mkdir -p "$VOBBO_DATA_DIR"
echo '{"theme": "solarized", "loginItem": "TRUE", "onboardingStep": "a half-finished welcome step that is far too long"}' \
  >"$VOBBO_DATA_DIR/vobbo-store.json"
"$quibly" data migrate
echo "· the store after the migrations:"
sed 's/^/    /' "$VOBBO_DATA_DIR/vobbo-store.json"
"$quibly" data export "$tmp"
HOME=$tmp/home "$quibly" data
unset VOBBO_DATA_DIR

section "Mail triage on this machine (samples/inbox: 32 mails written for this demo)"
"$quibly" mail triage samples/inbox
