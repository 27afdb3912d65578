#!/usr/bin/env bash
# Builds and runs the whole test suite.
#   scripts/test.sh [release|asan|tsan]   (default: release)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
flavour=${1:-release}
"$root/scripts/build.sh" "$flavour"
cd "$root/build/$flavour"
ctest --output-on-failure -j "${OSTREL_JOBS:-$(nproc)}" --timeout 300
