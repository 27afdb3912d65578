#!/usr/bin/env bash
# The long reliability campaigns, with the figures of the README's
# "Reliability" section:
#   scripts/reliability.sh [fuzz seconds per target]   (default 300)
# 200 SIGKILL cycles, 3,000 flushes under random faults, 200 restarts over a
# damaged storage root, then every fuzz target.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release ostrel_campaign_tests ostrel_host_producer
campaigns="$root/build/release/tests/queue/ostrel_campaign_tests"
log="$root/build/release/reliability.log"
status=0
OSTREL_CRASH_CYCLES=200 OSTREL_FAULT_ROUNDS=3000 OSTREL_CORRUPT_CYCLES=200 \
  "$campaigns" --gtest_brief=1 >"$log" 2>&1 || status=$?
grep -E "campaign:|Failure|FAILED" "$log" || true
[ "$status" -eq 0 ] || { echo "campaigns failed (see $log)"; exit "$status"; }
"$root/scripts/fuzz.sh" "${1:-300}"
