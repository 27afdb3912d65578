#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with.
# Idempotent: prints nothing and touches nothing when everything is already there.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config clang lld libclang-rt-14-dev
  libcurl4-openssl-dev libssl-dev zlib1g-dev openssl nlohmann-json3-dev libpcre2-dev libutf8proc-dev
  libcpp-httplib-dev libsqlite3-dev libgtest-dev libgmock-dev libbenchmark-dev
  procps tzdata python3 python3-pytest
  chromium  # the emulator page's test drives it headless
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
