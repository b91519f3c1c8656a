#!/usr/bin/env bash
# Configures, builds and runs the test suite of one preset (default: default);
# the default preset also runs the Python package's tests.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
run=()
# ThreadSanitizer needs the classic address-space layout on kernels with
# high mmap randomisation.
if [ "$preset" = tsan ] && command -v setarch >/dev/null; then run=(setarch "$(uname -m)" -R); fi
"${run[@]}" ctest --preset "$preset"
if [ "$preset" = default ]; then bash scripts/test_python.sh; fi
