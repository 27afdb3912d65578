#!/usr/bin/env bash
# Builds and runs the test suite.
#   scripts/test.sh [release|asan|tsan]   (default: release)
# asan runs everything under AddressSanitizer + UndefinedBehaviorSanitizer,
# with the fuzz targets' regression inputs; tsan runs the programs that
# exercise the library's threads under ThreadSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
flavour=${1:-release}
if [ "$flavour" = tsan ]; then
  programs=(queue/ostrel_queue_tests platform/ostrel_platform_tests login/ostrel_login_tests
            push/ostrel_push_tests transport/ostrel_transport_tests)
  targets=()
  for p in "${programs[@]}"; do targets+=("$(basename "$p")"); done
  "$root/scripts/build.sh" tsan "${targets[@]}"
  export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
  for p in "${programs[@]}"; do
    echo "== $p (ThreadSanitizer)"
    "$root/build/tsan/tests/$p" --gtest_brief=1
  done
  exit 0
fi
"$root/scripts/build.sh" "$flavour"
cd "$root/build/$flavour"
ctest --output-on-failure -j "${OSTREL_JOBS:-$(nproc)}" --timeout 300
