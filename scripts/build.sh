#!/usr/bin/env bash
# Configures and builds the project.
#   scripts/build.sh [release|asan|tsan] [cmake targets...]
# Each flavour has its own build folder under build/. The sanitizer flavours
# build the library and what tests it, not the programs; the asan flavour also
# builds the fuzz targets (its code carries libFuzzer's coverage).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"

flavour=${1:-release}
[ $# -gt 0 ] && shift
dir="$root/build/$flavour"
args=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo)
case "$flavour" in
  release) args+=(-DBUILD_SHARED_LIBS=ON) ;;  # install-check installs this build
  asan) args+=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DOSTREL_SANITIZE=address,undefined -DOSTREL_FUZZ=ON -DOSTREL_BUILD_PROGRAMS=OFF) ;;
  tsan) args+=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DOSTREL_SANITIZE=thread -DOSTREL_BUILD_PROGRAMS=OFF) ;;
  *) echo "unknown flavour: $flavour" >&2; exit 2 ;;
esac
if command -v ccache >/dev/null; then args+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi

if [ ! -f "$dir/build.ninja" ]; then
  cmake -S "$root" -B "$dir" "${args[@]}" >/dev/null
fi
jobs=${OSTREL_JOBS:-$(nproc)}
if [ $# -gt 0 ]; then
  cmake --build "$dir" -j "$jobs" --target "$@"
else
  cmake --build "$dir" -j "$jobs"
fi
