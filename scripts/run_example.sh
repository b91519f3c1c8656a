#!/usr/bin/env bash
# Builds the library and runs the quick tour (no arm needed; pass an arm's
# IP address and port to query a real controller as well).
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target quick_tour
./build/default/examples/quick_tour "$@"
