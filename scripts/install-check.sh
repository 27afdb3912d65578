#!/usr/bin/env bash
# Proves that the installed SDK works the way a host uses it:
#  1. builds the C++ example with the library's tree added by add_subdirectory,
#     checking that such a host's configure looks for none of the packages of
#     the emulator, the tests or the bench;
#  2. installs the release build (shared library, programs, package files) to
#     a temporary prefix;
#  3. builds the C++ example against the prefix with find_package(ostrel) and
#     with pkg-config, and the C example with the C compiler and pkg-config;
#  4. runs each against ostrel-emulator from the prefix, checking that the
#     emulator received their events, then the Python ctypes tests against the
#     installed libostrel.so, and the C example once more under
#     AddressSanitizer's leak check.
#   scripts/install-check.sh
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
jobs=${OSTREL_JOBS:-$(nproc)}
build="$root/build/install-check"
work=$(mktemp -d)
emulator_pid=
cleanup() {
  if [ -n "$emulator_pid" ]; then kill "$emulator_pid" 2>/dev/null || true; wait "$emulator_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
prefix="$work/prefix"
step() { echo "== install-check: $*"; }

step "the C++ example by add_subdirectory: the library alone, none of the emulator's, tests' or bench's packages looked for"
rm -rf "$build/source"
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S "$root/examples/cpp" -B "$build/source" -G Ninja -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" \
  -DOSTREL_FROM=source -DOSTREL_SOURCE_DIR="$root" -DBUILD_SHARED_LIBS=ON >/dev/null
if grep -Eiq '^(httplib|sqlite3|gtest|benchmark)_' "$build/source/CMakeCache.txt"; then
  grep -Ei '^(httplib|sqlite3|gtest|benchmark)_' "$build/source/CMakeCache.txt" | head
  echo "a host's add_subdirectory looked for the emulator's, tests' or bench's packages"; exit 1
fi
cmake --build "$build/source" -j "$jobs" --target ostrel_cpp_example

# The package comes from the release build (the one the tests ran on), so the
# library is compiled once more only for the add_subdirectory host above.
step "install the release build to $prefix"
release="$root/build/release"
if [ -f "$release/CMakeCache.txt" ] && ! grep -q '^BUILD_SHARED_LIBS:BOOL=ON' "$release/CMakeCache.txt"; then
  cmake -B "$release" -DBUILD_SHARED_LIBS=ON >/dev/null
fi
"$root/scripts/build.sh" release
cmake --install "$release" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name ostrel.pc)")/..
libdir=$(cd "$libdir" && pwd)
export PKG_CONFIG_PATH="$libdir/pkgconfig"

step "the C++ example by find_package and by pkg-config, the C example by pkg-config"
rm -rf "$build/package" "$build/pkg-config"
cmake -S "$root/examples/cpp" -B "$build/package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake -S "$root/examples/cpp" -B "$build/pkg-config" -G Ninja -DOSTREL_FROM=pkg-config >/dev/null
cmake --build "$build/package" -j "$jobs"
cmake --build "$build/pkg-config" -j "$jobs"
# pkg-config gives no run path: the programs find the library through it.
read -r -a ostrel_flags <<<"$(pkg-config --cflags --libs ostrel) -Wl,-rpath,$libdir -pthread"
c_flags=(-std=c11 -Wall -Wextra -Werror -pedantic)
cc "${c_flags[@]}" -o "$work/c_example" "$root/examples/c/ostrel_example.c" "${ostrel_flags[@]}"
# The leak check: ASan's allocator in the program tracks every allocation in
# the process, the installed library's included, so the library itself need
# not be built with sanitizers.
cc "${c_flags[@]}" -g -fsanitize=address -fno-omit-frame-pointer -o "$work/c_example_asan" \
  "$root/examples/c/ostrel_example.c" "${ostrel_flags[@]}"

step "ostrel-emulator from the prefix"
"$prefix/bin/ostrel-emulator" --port 0 --data "$work/emulator" >"$work/emulator.log" 2>&1 &
emulator_pid=$!
for _ in $(seq 100); do
  [ -s "$work/emulator.log" ] && break
  kill -0 "$emulator_pid" 2>/dev/null || { cat "$work/emulator.log"; exit 1; }
  sleep 0.1
done
info=$(head -n 1 "$work/emulator.log")
field() { python3 -c 'import json, sys; print(json.loads(sys.argv[1])[sys.argv[2]])' "$info" "$1"; }
port=$(field port)
OSTREL_SERVICE_DOMAIN=$(field domain)
OSTREL_SERVICE_SCHEME=$(field scheme)
OSTREL_CA_FILE=$(field ca_file)
OSTREL_CONNECT_TO="127.0.0.1:$port"
export OSTREL_SERVICE_DOMAIN OSTREL_SERVICE_SCHEME OSTREL_CA_FILE OSTREL_CONNECT_TO
export OSTREL_EMULATOR_URL="$OSTREL_SERVICE_SCHEME://127.0.0.1:$port"

# How many events named $1 the emulator holds.
received() {
  python3 - "$1" <<'PY'
import json, os, ssl, sys, urllib.request
context = ssl.create_default_context(cafile=os.environ["OSTREL_CA_FILE"])
url = os.environ["OSTREL_EMULATOR_URL"] + "/_emulator/events"
with urllib.request.urlopen(url, context=context, timeout=10) as reply:
    events = json.load(reply)["events"]
print(sum(1 for e in events if e["event"].get("name") == sys.argv[1]))
PY
}
# run NAME EVENT COUNT PROGRAM...: runs a host with a storage folder of its own
# and checks that the emulator then holds COUNT events named EVENT.
run() {
  local name=$1 event=$2 count=$3
  shift 3
  step "run $name"
  OSTREL_STORAGE_DIR="$work/storage-$name" "$@" user@ostrel.test secret >"$work/$name.log" 2>&1 ||
    { cat "$work/$name.log"; echo "$name failed"; exit 1; }
  local got
  got=$(received "$event")
  [ "$got" = "$count" ] || { cat "$work/$name.log"; echo "$name: $got $event events, expected $count"; exit 1; }
  grep -E '^(sign-up refused|logged in as|push received|every step|user logged|after shutdown)' \
    "$work/$name.log" | sed 's/^/    /'
}
# The first run signs the user up; the others log in, as do the C and Python hosts.
run cpp-source cpp_example_logged_in 1 "$build/source/ostrel_cpp_example"
run cpp-package cpp_example_logged_in 2 "$build/package/ostrel_cpp_example"
run cpp-pkg-config cpp_example_logged_in 3 "$build/pkg-config/ostrel_cpp_example"
run c c_example_logged_in 1 "$work/c_example"
ASAN_OPTIONS=detect_leaks=1 run c-asan c_example_logged_in 2 "$work/c_example_asan"

step "Python ctypes tests against $libdir/libostrel.so"
OSTREL_LIBRARY="$libdir/libostrel.so" OSTREL_STORAGE_DIR="$work/storage-python" \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider "$root/examples/python/test_ostrel.py"
step "passed"
