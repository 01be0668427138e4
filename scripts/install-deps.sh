#!/usr/bin/env bash
# Installs the Debian packages that building, testing, benchmarking and fuzzing need, skipping those
# already present. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(cmake ninja-build g++ clang pkg-config
          libgtest-dev libgmock-dev libbenchmark-dev libabsl-dev
          libcli11-dev libpcap-dev nlohmann-json3-dev
          libclang-rt-14-dev clang-format clang-tidy valgrind ccache python3 python3-jsonschema groff-base
          zlib1g-dev iproute2 tcpreplay)
missing=()
for p in "${packages[@]}"; do
    # A removed package keeps a dpkg record (and dpkg -s succeeds) until purged: check its status.
    status=$(dpkg -s "$p" 2>/dev/null | sed -n 's/^Status: //p' || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
if ((${#missing[@]} == 0)); then
    echo "All present: ${packages[*]}"
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo=()
if ((EUID != 0)); then
    command -v sudo >/dev/null || { echo "install-deps: run as root or install sudo" >&2; exit 1; }
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q || { sleep 10; "${sudo[@]}" apt-get update -q; }
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
