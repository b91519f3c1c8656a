#!/usr/bin/env bash
# Configures, builds and runs the test suite of one preset (default: default);
# the default preset also runs the Python package's tests. "windows"
# cross-builds with MinGW-w64 and runs the tests under Wine (the Wine prefix
# is created once, by the configure step, in build/windows).
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}
if [ "$preset" = windows ]; then
    # The DLL's exports are compared with the Linux library's.
    cmake --preset default >/dev/null
    cmake --build --preset default -j "$(nproc)" --target ka_api
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
run=()
# ThreadSanitizer needs the classic address-space layout on kernels with
# high mmap randomisation.
if [ "$preset" = tsan ] && command -v setarch >/dev/null; then run=(setarch "$(uname -m)" -R); fi
if [ "$preset" = windows ]; then
    # One Wine server for the whole run, stopped at the end: test programs
    # then never start while a server that went idle is exiting. The server
    # the build's test discovery started is waited out first (-p fails while
    # one runs). wineboot starts Wine's background processes once, with no
    # test's output to inherit.
    export WINEPREFIX=$PWD/build/windows/wineprefix WINEDEBUG=-all
    /usr/lib/wine/wineserver -w
    /usr/lib/wine/wineserver -p
    trap '/usr/lib/wine/wineserver -k || true' EXIT
    /usr/lib/wine/wine64 wineboot </dev/null >/dev/null 2>&1 || true
fi
"${run[@]}" ctest --preset "$preset"
if [ "$preset" = default ]; then bash scripts/test_python.sh; fi
