#!/usr/bin/env bash
# Builds the release flavour and runs every benchmark: the micro-benchmarks
# (Google Benchmark) and the end-to-end figures of ostrel-bench, then prints
# one table and writes build/release/bench-summary.json.
#   scripts/bench.sh [ostrel-bench options, e.g. --events 20000 --stream-events 100000]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release ostrel-bench ostrel-micro-bench >/dev/null
out="$root/build/release"
bin="$root/build/release/bench"
"$bin/ostrel-micro-bench" --benchmark_format=console --benchmark_out_format=json \
  --benchmark_out="$out/bench-micro.json" >&2
"$bin/ostrel-bench" --micro "$out/bench-micro.json" --json "$out/bench-summary.json" "$@"
