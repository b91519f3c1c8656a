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
          python3-pytest python3-clang-14 python3-setuptools python3-pip python3-venv
          python3-numpy)
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

# cJSON's source for the Windows cross build, from the Debian archive: a
# deb-src entry and package lists in a scratch directory, used for this one
# call only, so the system's apt configuration is left as it is.
root=$(cd "$(dirname "$0")/.." && pwd)
if ! compgen -G "$root/third_party/cjson-*/cJSON.c" >/dev/null; then
    . /etc/os-release
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    mkdir -p "$scratch/sources.list.d" "$scratch/lists/partial" "$scratch/cache/archives/partial"
    cat >"$scratch/sources.list.d/source.sources" <<SOURCES
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: $VERSION_CODENAME
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SOURCES
    apt_scratch=(-o "Dir::Etc::SourceList=$scratch/none.list"
                 -o "Dir::Etc::SourceParts=$scratch/sources.list.d"
                 -o "Dir::State::Lists=$scratch/lists"
                 -o "Dir::Cache=$scratch/cache")
    touch "$scratch/none.list"
    apt-get "${apt_scratch[@]}" update
    mkdir -p "$root/third_party"
    (cd "$root/third_party" && apt-get "${apt_scratch[@]}" source cjson)
fi
# Third-party sources keep their own layout (scripts/check_format.sh).
printf 'DisableFormat: true\nSortIncludes: Never\n' >"$root/third_party/.clang-format"
