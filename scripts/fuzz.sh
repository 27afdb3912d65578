#!/usr/bin/env bash
# Runs every fuzz target for a while from the seed corpora.
#   scripts/fuzz.sh [seconds per target]   (default 20: the CI smoke; try 3600)
# Corpora grow in build/asan/fuzz/corpus/<target>; a crash leaves its input in
# build/asan/fuzz/artifacts/ and fails the run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
targets=(push_payload reply simple_object archive settings chunk_folder)
"$root/scripts/build.sh" asan ostrel-fuzz-seeds "${targets[@]/#/ostrel_fuzz_}"
dir="$root/build/asan/fuzz"
mkdir -p "$dir/artifacts"
"$root/build/asan/fuzz/ostrel-fuzz-seeds" "$dir/seeds"
export ASAN_OPTIONS=detect_leaks=1
status=0
for t in "${targets[@]}"; do
  mkdir -p "$dir/corpus/$t"
  log="$dir/$t.log"
  if "$root/build/asan/fuzz/ostrel_fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 \
      -max_len=65536 -print_final_stats=1 -artifact_prefix="$dir/artifacts/$t-" \
      "$dir/corpus/$t" "$dir/seeds/$t" >"$log" 2>&1; then
    runs=$(sed -n 's/^Done \([0-9]*\) runs.*/\1/p' "$log")
    echo "fuzz $t: ${runs:-?} executions in ${seconds}s, no crash"
  else
    echo "fuzz $t: FAILED (see $log)"; tail -n 30 "$log"; status=1
  fi
done
exit $status
