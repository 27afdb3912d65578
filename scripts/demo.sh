#!/usr/bin/env bash
# Builds and runs ostrel-demo against an emulator started inside the demo itself.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release ostrel-demo >/dev/null
exec "$root/build/release/demo/ostrel-demo" "$@"
