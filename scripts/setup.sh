#!/usr/bin/env bash
# Installs every build, test, benchmark, fuzzing, documentation and
# formatting dependency from Debian packages, the Windows cross toolchain
# with Wine to test it, and Python for the package and its tests.
# Safe to run again: apt-get only installs what is missing.
set -euo pipefail
packages=(build-essential cmake pkg-config libcjson-dev libeigen3-dev
          libgtest-dev libgmock-dev libbenchmark-dev liborocos-kdl-dev
          clang libclang-rt-14-dev doxygen clang-format
          g++-mingw-w64-x86-64-posix wine64 dpkg-dev
          python3-pytest python3-clang-14 python3-setuptools python3-pip python3-venv)
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    "${sudo_cmd[@]}" apt-get update
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
fi
